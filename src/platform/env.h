// The replaceable environment of the platform layer.
//
// Every action of the library that changes the machine, or depends on it in a
// way a test must control, goes through the Env installed at that moment:
// file writes (so a test can inject ENOSPC, EACCES, a failed fsync or rename),
// running commands, setting the clock, the zone-file root, the adapter list,
// the clocks, and the random and UUID sources. Production uses Env::Default();
// tests install a recording or failing subclass (usually of EnvWrapper) with
// Env::Install and restore the default afterwards. Plain reads of files use
// the real file system directly.
//
// Error convention: functions returning int give 0 (or a descriptor) on
// success and -1 on failure with errno set, like the POSIX calls they wrap.
#ifndef OXCFG_PLATFORM_ENV_H
#define OXCFG_PLATFORM_ENV_H

#include <sys/types.h>

#include <cstdint>
#include <string>
#include <vector>

namespace OxBase {

struct AdapterAddress {
  std::string name;         // interface name, e.g. "eth0"
  std::string description;  // human-readable description (the name on Linux)
  std::vector<std::string> ipv4;  // dotted IPv4 texts, in enumeration order
};

// One change seen in a watched directory (see Env::OpenDirWatch).
struct DirEvent {
  enum Kind : uint32_t {
    kWritten = 1,    // a writer closed the file it had open for writing
    kMovedIn = 2,    // a file was renamed to this name (an atomic replace)
    kMovedOut = 4,   // a file of this name was renamed away
    kOverflow = 8,   // events were lost; the name is empty
  };
  std::string name;     // the file's name inside the directory, no slash
  uint32_t kind = 0;    // one Kind
  uint32_t cookie = 0;  // equal for the kMovedOut and kMovedIn of one rename
};

struct CommandResult {
  int exitCode = -1;   // exit status; -1 when the program could not be run
  std::string output;  // captured standard output (and standard error)
};

class Env {
 public:
  virtual ~Env();

  // The real environment; never null, lives for the whole process.
  static Env* Default();
  // The environment in force. Thread-safe.
  static Env* Current();
  // Installs `env` (nullptr restores the default). The caller keeps ownership
  // and must keep `env` alive until it is replaced.
  static void Install(Env* env);

  // --- files written by the library ---------------------------------------
  virtual int Open(const std::string& path, int flags, mode_t mode);
  // Writes all `len` bytes, resuming after partial writes and EINTR. Returns
  // `len`; on failure the number of bytes written before it (errno set), or
  // -1 when there were none.
  virtual ssize_t Write(int fd, const void* data, size_t len);
  virtual int Fsync(int fd);
  virtual int Fchmod(int fd, mode_t mode);
  virtual int Close(int fd);
  virtual int Rename(const std::string& from, const std::string& to);
  virtual int Unlink(const std::string& path);
  virtual int MakeDir(const std::string& path, mode_t mode);
  virtual int RemoveDir(const std::string& path);
  // fsync of a directory, so that a rename inside it is durable.
  virtual int SyncDir(const std::string& dir);
  // flock(2) on a descriptor (LOCK_EX, LOCK_UN, ...), retried on EINTR.
  virtual int Flock(int fd, int op);
  // symlink(2): creates `linkPath` as a symbolic link holding `target`.
  virtual int Symlink(const std::string& target, const std::string& linkPath);

  // --- commands -------------------------------------------------------------
  // Runs argv[0] (searched in PATH when it has no slash) with the given
  // arguments, never through a shell. `input` is written to its standard
  // input, which is then closed. Standard output and standard error are
  // captured together. A child that exits or closes its input without
  // reading it all ends the feed: no SIGPIPE reaches the process (the write
  // is made with SIGPIPE blocked in the calling thread only, and a SIGPIPE it
  // raised is consumed), and the process's disposition of SIGPIPE is never
  // changed. The child starts with SIGPIPE at its default and no signal
  // blocked.
  virtual CommandResult Run(const std::vector<std::string>& argv,
                            const std::string& input,
                            const std::string& workDir);

  // --- time -----------------------------------------------------------------
  virtual int64_t NowMicros();        // wall clock, microseconds since 1970
  virtual uint64_t TickMillis();      // monotonic milliseconds
  virtual int SetSystemTime(int64_t secondsSince1970);
  // The C library's zone in force (TZ honoured, the zone file re-read when it
  // changed): the standard offset of the zone at `secondsSince1970`, in
  // seconds east of UTC, and whether daylight saving time is in force then.
  virtual int LocalZone(int64_t secondsSince1970, int* standardOffsetEast, int* isDst);
  // mktime(3) of a wall-clock time (month 1..12) in the zone in force,
  // daylight saving unknown; out-of-range fields are normalised as mktime
  // does. -1 (EOVERFLOW) when the result is not representable.
  virtual int MakeLocalTime(int year, int month, int day, int hour, int minute, int second,
                            int64_t* secondsSince1970);

  // --- randomness -----------------------------------------------------------
  virtual uint32_t Random32();
  virtual void NewUuid(unsigned char out[16]);  // random (version 4) UUID

  // --- machine facts ----------------------------------------------------------
  virtual int GetAdapters(std::vector<AdapterAddress>* out);
  virtual std::string ZoneInfoRoot();   // "/usr/share/zoneinfo/"
  virtual std::string LocalTimePath();  // "/etc/localtime"
  virtual std::string OsReleasePath();  // "/etc/os-release"

  // --- directory watch --------------------------------------------------------
  // Starts watching the files of `dir` (not below it) for closed writes and
  // renames in and out. Returns a handle (>= 0) or -1 with errno set.
  virtual int OpenDirWatch(const std::string& dir);
  // Waits up to `timeoutMillis` (-1: no limit) for events of `handle` and
  // appends them to `out` in the order they happened. Returns the number
  // appended; 0 after the time-out or a WakeDirWatch; -1 on failure (errno).
  virtual int ReadDirWatch(int handle, int timeoutMillis, std::vector<DirEvent>* out);
  // Makes a ReadDirWatch of `handle` that waits (or the next one) return 0
  // at once. Callable from any thread, also from a signal-free exit path.
  virtual void WakeDirWatch(int handle);
  // Ends the watch; the handle is invalid afterwards.
  virtual void CloseDirWatch(int handle);
};

// Forwards every call to a target Env; tests override only what they inject.
class EnvWrapper : public Env {
 public:
  explicit EnvWrapper(Env* target) : target_(target) {}
  Env* target() const { return target_; }

  int Open(const std::string& p, int f, mode_t m) override { return target_->Open(p, f, m); }
  ssize_t Write(int fd, const void* d, size_t n) override { return target_->Write(fd, d, n); }
  int Fsync(int fd) override { return target_->Fsync(fd); }
  int Fchmod(int fd, mode_t m) override { return target_->Fchmod(fd, m); }
  int Close(int fd) override { return target_->Close(fd); }
  int Rename(const std::string& a, const std::string& b) override { return target_->Rename(a, b); }
  int Unlink(const std::string& p) override { return target_->Unlink(p); }
  int MakeDir(const std::string& p, mode_t m) override { return target_->MakeDir(p, m); }
  int RemoveDir(const std::string& p) override { return target_->RemoveDir(p); }
  int SyncDir(const std::string& d) override { return target_->SyncDir(d); }
  int Flock(int fd, int op) override { return target_->Flock(fd, op); }
  int Symlink(const std::string& t, const std::string& l) override { return target_->Symlink(t, l); }
  CommandResult Run(const std::vector<std::string>& a, const std::string& in,
                    const std::string& wd) override {
    return target_->Run(a, in, wd);
  }
  int64_t NowMicros() override { return target_->NowMicros(); }
  uint64_t TickMillis() override { return target_->TickMillis(); }
  int SetSystemTime(int64_t s) override { return target_->SetSystemTime(s); }
  int LocalZone(int64_t s, int* off, int* dst) override { return target_->LocalZone(s, off, dst); }
  int MakeLocalTime(int y, int mo, int d, int h, int mi, int s, int64_t* out) override {
    return target_->MakeLocalTime(y, mo, d, h, mi, s, out);
  }
  uint32_t Random32() override { return target_->Random32(); }
  void NewUuid(unsigned char out[16]) override { target_->NewUuid(out); }
  int GetAdapters(std::vector<AdapterAddress>* out) override { return target_->GetAdapters(out); }
  std::string ZoneInfoRoot() override { return target_->ZoneInfoRoot(); }
  std::string LocalTimePath() override { return target_->LocalTimePath(); }
  std::string OsReleasePath() override { return target_->OsReleasePath(); }
  int OpenDirWatch(const std::string& d) override { return target_->OpenDirWatch(d); }
  int ReadDirWatch(int h, int t, std::vector<DirEvent>* out) override {
    return target_->ReadDirWatch(h, t, out);
  }
  void WakeDirWatch(int h) override { target_->WakeDirWatch(h); }
  void CloseDirWatch(int h) override { target_->CloseDirWatch(h); }

 private:
  Env* target_;
};

}  // namespace OxBase

#endif  // OXCFG_PLATFORM_ENV_H
