// The portability runtime: files and directories, time, UUIDs, random numbers,
// string helpers, atomic increment, mutexes and the network adapter list.
//
// Functions that return int give 0 for success and a non-zero value (usually
// -1) for failure, with the cause available from OSL_GetSystemLastError(),
// unless stated otherwise. Everything that writes a file or reaches the
// machine goes through OxBase::Env::Current(). All functions are thread-safe.
#ifndef OXCFG_PLATFORM_OSL_H
#define OXCFG_PLATFORM_OSL_H

#include <oxconfigmgr/OxMutex.h>

#include <atomic>
#include <cstddef>
#include <cstdint>

// ---- files ------------------------------------------------------------------

// 0 when `path` exists (mode 0) or is accessible with the access(2) mode bits
// given; -1 otherwise.
int OSL_AccessFile(const char* path, int mode);
int OSL_DeleteFile(const char* path);
// Creates a directory (mode 0755); an existing directory counts as success.
int OSL_MakeDir(const char* path);
int OSL_RemoveDir(const char* path);
// Copies a regular file atomically (the target is replaced, never left
// partial). Fails without touching `to` when `from` cannot be read.
int OSL_CopyFile(const char* from, const char* to);

// A descriptor of a file open for reading; OxBase::UniqueFd can own one.
typedef int OSL_File;
constexpr OSL_File OSL_INVALID_FILE = -1;
enum {
  OSL_FILE_READ = 1,
  OSL_FILE_BINARY = 4096,  // accepted for portability; no effect on Linux
};
enum { OSL_SEEK_SET = 0, OSL_SEEK_CUR = 1, OSL_SEEK_END = 2 };

// Opens a file for reading. Files are never written in place: the library
// replaces them whole with OxBase::WriteFileAtomic. Any flag but the two
// above fails with EINVAL. Returns OSL_INVALID_FILE on failure. `mode` is
// ignored.
OSL_File OSL_OpenFile(const char* path, int flags, int mode);
// New position, or -1.
int64_t OSL_SeekFile(OSL_File file, int64_t offset, int whence);
// Reads up to `len` bytes, resuming after partial reads: the count read (less
// than `len` only at the end of the file or when an error followed some
// bytes; 0 at the end), or -1.
int OSL_ReadFile(OSL_File file, void* buf, int len);
int OSL_CloseFile(OSL_File file);

struct OSL_Dir;
struct OSL_FileInfo {
  char name[256];
  bool isDir;
};
// nullptr on failure.
OSL_Dir* OSL_OpenDir(const char* path);
// 0 with the next entry ("." and ".." are skipped), -1 at the end.
int OSL_FindFileInDir(OSL_Dir* dir, OSL_FileInfo* info);
int OSL_CloseDir(OSL_Dir* dir);

// ---- time -------------------------------------------------------------------

typedef int64_t OSL_Time;  // microseconds since 1970-01-01 UTC

struct OSL_ExpTime {
  int32_t tm_usec;
  int32_t tm_sec;
  int32_t tm_min;
  int32_t tm_hour;
  int32_t tm_mday;
  int32_t tm_mon;     // 0..11
  int32_t tm_year;    // years since 1900
  int32_t tm_wday;
  int32_t tm_yday;
  int32_t tm_isdst;
  int32_t tm_gmtoff;  // seconds east of UTC
};

OSL_Time OSL_TimeNow();
// Monotonic milliseconds.
uint64_t OSL_GetTimeTick();
// Breaks `t` down as local time.
int OSL_ExpTimeFromTimeLocal(OSL_Time t, OSL_ExpTime* out);
// Converts a broken-down time whose fields are in the zone `in->tm_gmtoff`
// seconds east of UTC into a time stamp. Fails for fields out of range.
int OSL_TimeFromExpTimeGMT(const OSL_ExpTime* in, OSL_Time* out);

// ---- identifiers and random numbers ---------------------------------------

struct OSL_UUID {
  unsigned char data[16];
};
// A new random UUID; 0 on success.
int OSL_GetUUID(OSL_UUID* uuid);
// The usual 36-character lower-case form, NUL-terminated when `len` > 36.
// Returns the number of characters written (at most len - 1), or -1.
int OSL_StringFromUUID(const OSL_UUID* uuid, char* buf, int len);
uint32_t OSL_Rand();
// Atomically increments `value` and returns the new value.
int64_t OSL_AtomicInc(std::atomic<int64_t>* value);

// ---- mutex ------------------------------------------------------------------

int OSL_Mutex_Create(OSL_Mutex* mutex);
int OSL_Mutex_Lock(OSL_Mutex* mutex);
int OSL_Mutex_Unlock(OSL_Mutex* mutex);
int OSL_Mutex_Destroy(OSL_Mutex* mutex);

// ---- strings ----------------------------------------------------------------

// Decimal text to int: leading blanks, an optional sign, digits; the rest is
// ignored. Non-numeric text and null give 0; values beyond 32 bits wrap.
int32_t OSL_Atoi32(const char* text);
// Writes `value` in `radix` (2..36) into `buf` (at least 34 bytes), returns buf.
char* OSL_Itoa(int32_t value, char* buf, int radix);
// Bounded copy into a buffer of `size` bytes: at most size - 1 characters,
// always NUL-terminated (size 0 writes nothing). Returns dst.
char* OSL_Strncpy(char* dst, const char* src, size_t size);
int OSL_Strcmp(const char* a, const char* b);
// errno of the calling thread's last failed call.
int OSL_GetSystemLastError();

// ---- network adapters -------------------------------------------------------

struct OSL_IPV4_ADDR {
  char addr[16];
  OSL_IPV4_ADDR* next;
};
struct OSL_ADAPTER_INFO {
  char name[132];
  char description[132];
  OSL_IPV4_ADDR* ipList;
  OSL_ADAPTER_INFO* next;
};
// Lists the IPv4 adapters; release the list with OSL_FreeAdapterInfo.
int OSL_GetAdapterInfo(OSL_ADAPTER_INFO** list);
int OSL_FreeAdapterInfo(OSL_ADAPTER_INFO* list);

#endif  // OXCFG_PLATFORM_OSL_H
