#include "platform/osl.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <memory>
#include <new>
#include <string>

#include "platform/env.h"
#include "platform/file_util.h"
#include "platform/scoped_handles.h"

using OxBase::Env;

int OSL_AccessFile(const char* path, int mode) {
  if (!path) {
    errno = EINVAL;
    return -1;
  }
  return ::access(path, mode) == 0 ? 0 : -1;
}

int OSL_DeleteFile(const char* path) {
  if (!path) {
    errno = EINVAL;
    return -1;
  }
  return Env::Current()->Unlink(path);
}

int OSL_MakeDir(const char* path) {
  if (!path) {
    errno = EINVAL;
    return -1;
  }
  if (Env::Current()->MakeDir(path, 0755) == 0) return 0;
  struct stat st;
  if (errno == EEXIST && ::stat(path, &st) == 0 && S_ISDIR(st.st_mode)) return 0;
  return -1;
}

int OSL_RemoveDir(const char* path) {
  if (!path) {
    errno = EINVAL;
    return -1;
  }
  return Env::Current()->RemoveDir(path);
}

int OSL_CopyFile(const char* from, const char* to) {
  if (!from || !to) {
    errno = EINVAL;
    return -1;
  }
  std::string data;
  if (!OxBase::ReadWholeFile(from, &data, SIZE_MAX)) return -1;
  struct stat st;
  OxBase::FileMode mode = OxBase::FileMode::kKeep;
  // A copy is as private as its source.
  if (::stat(from, &st) == 0 && (st.st_mode & 077) == 0) mode = OxBase::FileMode::kSecret;
  return OxBase::WriteFileAtomic(to, data, mode).landed() ? 0 : -1;
}

OSL_File OSL_OpenFile(const char* path, int flags, int /*mode*/) {
  if (!path || (flags & ~(OSL_FILE_READ | OSL_FILE_BINARY)) != 0) {
    errno = EINVAL;
    return OSL_INVALID_FILE;
  }
  int fd;
  do {
    fd = ::open(path, O_RDONLY | O_CLOEXEC);
  } while (fd < 0 && errno == EINTR);
  return fd;
}

int64_t OSL_SeekFile(OSL_File file, int64_t offset, int whence) {
  int w = whence == OSL_SEEK_END ? SEEK_END : whence == OSL_SEEK_CUR ? SEEK_CUR : SEEK_SET;
  return ::lseek(file, offset, w);
}

int OSL_ReadFile(OSL_File file, void* buf, int len) {
  if (!buf || len < 0) {
    errno = EINVAL;
    return -1;
  }
  char* p = static_cast<char*>(buf);
  int got = 0;
  while (got < len) {
    ssize_t n = ::read(file, p + got, static_cast<size_t>(len - got));
    if (n < 0) {
      if (errno == EINTR) continue;
      return got > 0 ? got : -1;
    }
    if (n == 0) break;
    got += static_cast<int>(n);
  }
  return got;
}

int OSL_CloseFile(OSL_File file) { return Env::Current()->Close(file); }

struct OSL_Dir {
  explicit OSL_Dir(const char* path) : dir(path) {}
  OxBase::UniqueDir dir;
};

OSL_Dir* OSL_OpenDir(const char* path) {
  std::unique_ptr<OSL_Dir> h(new (std::nothrow) OSL_Dir(path));
  if (!h) {
    errno = ENOMEM;
    return nullptr;
  }
  return h->dir.valid() ? h.release() : nullptr;
}

int OSL_FindFileInDir(OSL_Dir* dir, OSL_FileInfo* info) {
  if (!dir || !info) {
    errno = EINVAL;
    return -1;
  }
  for (;;) {
    errno = 0;
    dirent* e = ::readdir(dir->dir.get());
    if (!e) return -1;
    if (std::strcmp(e->d_name, ".") == 0 || std::strcmp(e->d_name, "..") == 0) continue;
    OSL_Strncpy(info->name, e->d_name, sizeof info->name);
    info->isDir = e->d_type == DT_DIR;
    return 0;
  }
}

int OSL_CloseDir(OSL_Dir* dir) {
  if (!dir) return -1;
  delete dir;
  return 0;
}

OSL_Time OSL_TimeNow() { return Env::Current()->NowMicros(); }

uint64_t OSL_GetTimeTick() { return Env::Current()->TickMillis(); }

int OSL_ExpTimeFromTimeLocal(OSL_Time t, OSL_ExpTime* out) {
  if (!out) {
    errno = EINVAL;
    return -1;
  }
  time_t secs = static_cast<time_t>(t / 1000000);
  int64_t usec = t % 1000000;
  if (usec < 0) {
    usec += 1000000;
    --secs;
  }
  struct tm tmv;
  if (!localtime_r(&secs, &tmv)) return -1;
  out->tm_usec = static_cast<int32_t>(usec);
  out->tm_sec = tmv.tm_sec;
  out->tm_min = tmv.tm_min;
  out->tm_hour = tmv.tm_hour;
  out->tm_mday = tmv.tm_mday;
  out->tm_mon = tmv.tm_mon;
  out->tm_year = tmv.tm_year;
  out->tm_wday = tmv.tm_wday;
  out->tm_yday = tmv.tm_yday;
  out->tm_isdst = tmv.tm_isdst;
  out->tm_gmtoff = static_cast<int32_t>(tmv.tm_gmtoff);
  return 0;
}

int OSL_TimeFromExpTimeGMT(const OSL_ExpTime* in, OSL_Time* out) {
  if (!in || !out || in->tm_mon < 0 || in->tm_mon > 11 || in->tm_mday < 1 || in->tm_mday > 31 ||
      in->tm_hour < 0 || in->tm_hour > 23 || in->tm_min < 0 || in->tm_min > 59 ||
      in->tm_sec < 0 || in->tm_sec > 60 || in->tm_usec < 0 || in->tm_usec > 999999) {
    errno = EINVAL;
    return -1;
  }
  struct tm tmv{};
  tmv.tm_sec = in->tm_sec;
  tmv.tm_min = in->tm_min;
  tmv.tm_hour = in->tm_hour;
  tmv.tm_mday = in->tm_mday;
  tmv.tm_mon = in->tm_mon;
  tmv.tm_year = in->tm_year;
  time_t secs = timegm(&tmv);
  if (secs == static_cast<time_t>(-1) && !(in->tm_year == 69 && in->tm_mon == 11 &&
                                           in->tm_mday == 31 && in->tm_hour == 23)) {
    errno = EOVERFLOW;
    return -1;
  }
  *out = (static_cast<int64_t>(secs) - in->tm_gmtoff) * 1000000 + in->tm_usec;
  return 0;
}

int OSL_GetUUID(OSL_UUID* uuid) {
  if (!uuid) {
    errno = EINVAL;
    return -1;
  }
  Env::Current()->NewUuid(uuid->data);
  return 0;
}

int OSL_StringFromUUID(const OSL_UUID* uuid, char* buf, int len) {
  if (!uuid || !buf || len <= 0) {
    errno = EINVAL;
    return -1;
  }
  static const char kHex[] = "0123456789abcdef";
  char text[37];
  int pos = 0;
  for (int i = 0; i < 16; ++i) {
    if (i == 4 || i == 6 || i == 8 || i == 10) text[pos++] = '-';
    text[pos++] = kHex[uuid->data[i] >> 4];
    text[pos++] = kHex[uuid->data[i] & 0x0F];
  }
  text[36] = '\0';
  int n = len - 1 < 36 ? len - 1 : 36;
  std::memcpy(buf, text, static_cast<size_t>(n));
  buf[n] = '\0';
  return n;
}

uint32_t OSL_Rand() { return Env::Current()->Random32(); }

int64_t OSL_AtomicInc(std::atomic<int64_t>* value) {
  return value ? value->fetch_add(1, std::memory_order_relaxed) + 1 : 0;
}

int OSL_Mutex_Create(OSL_Mutex* mutex) { return mutex ? 0 : -1; }

int OSL_Mutex_Lock(OSL_Mutex* mutex) {
  if (!mutex) return -1;
  mutex->impl.lock();
  return 0;
}

int OSL_Mutex_Unlock(OSL_Mutex* mutex) {
  if (!mutex) return -1;
  mutex->impl.unlock();
  return 0;
}

int OSL_Mutex_Destroy(OSL_Mutex* mutex) { return mutex ? 0 : -1; }

int32_t OSL_Atoi32(const char* text) {
  if (!text) return 0;
  const char* p = text;
  while (*p == ' ' || *p == '\t' || *p == '\n' || *p == '\r' || *p == '\v' || *p == '\f') ++p;
  bool negative = false;
  if (*p == '+' || *p == '-') negative = *p++ == '-';
  uint32_t value = 0;
  while (*p >= '0' && *p <= '9') value = value * 10u + static_cast<uint32_t>(*p++ - '0');
  if (negative) value = 0u - value;
  return static_cast<int32_t>(value);
}

char* OSL_Itoa(int32_t value, char* buf, int radix) {
  if (!buf) return buf;
  if (radix < 2 || radix > 36) radix = 10;
  static const char kDigits[] = "0123456789abcdefghijklmnopqrstuvwxyz";
  char tmp[34];
  int n = 0;
  bool negative = radix == 10 && value < 0;
  uint32_t v = negative ? 0u - static_cast<uint32_t>(value) : static_cast<uint32_t>(value);
  do {
    tmp[n++] = kDigits[v % static_cast<uint32_t>(radix)];
    v /= static_cast<uint32_t>(radix);
  } while (v);
  int pos = 0;
  if (negative) buf[pos++] = '-';
  while (n) buf[pos++] = tmp[--n];
  buf[pos] = '\0';
  return buf;
}

char* OSL_Strncpy(char* dst, const char* src, size_t size) {
  if (!dst || size == 0) return dst;
  size_t n = 0;
  if (src) {
    while (n + 1 < size && src[n]) {
      dst[n] = src[n];
      ++n;
    }
  }
  dst[n] = '\0';
  return dst;
}

int OSL_Strcmp(const char* a, const char* b) {
  return std::strcmp(a ? a : "", b ? b : "");
}

int OSL_GetSystemLastError() { return errno; }

int OSL_GetAdapterInfo(OSL_ADAPTER_INFO** list) {
  if (!list) {
    errno = EINVAL;
    return -1;
  }
  *list = nullptr;
  std::vector<OxBase::AdapterAddress> adapters;
  if (Env::Current()->GetAdapters(&adapters) != 0) return -1;
  OSL_ADAPTER_INFO** tail = list;
  for (const auto& a : adapters) {
    auto* info = new (std::nothrow) OSL_ADAPTER_INFO{};
    if (!info) {
      OSL_FreeAdapterInfo(*list);
      *list = nullptr;
      errno = ENOMEM;
      return -1;
    }
    OSL_Strncpy(info->name, a.name.c_str(), sizeof info->name);
    OSL_Strncpy(info->description, a.description.c_str(), sizeof info->description);
    OSL_IPV4_ADDR** ipTail = &info->ipList;
    for (const auto& ip : a.ipv4) {
      auto* addr = new (std::nothrow) OSL_IPV4_ADDR{};
      if (!addr) break;
      OSL_Strncpy(addr->addr, ip.c_str(), sizeof addr->addr);
      *ipTail = addr;
      ipTail = &addr->next;
    }
    *tail = info;
    tail = &info->next;
  }
  return 0;
}

int OSL_FreeAdapterInfo(OSL_ADAPTER_INFO* list) {
  while (list) {
    OSL_ADAPTER_INFO* next = list->next;
    for (OSL_IPV4_ADDR* ip = list->ipList; ip;) {
      OSL_IPV4_ADDR* n = ip->next;
      delete ip;
      ip = n;
    }
    delete list;
    list = next;
  }
  return 0;
}
