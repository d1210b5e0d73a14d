// Owners of operating-system resources of the platform layer: each releases
// what it holds when it goes out of scope, on every path, so no code closes
// a directory stream, an adapter list or a spawn object by hand (descriptors:
// UniqueFd). None of them copies. Releasing never changes errno, so a caller
// can report the error of the call that failed before.
#ifndef OXCFG_PLATFORM_SCOPED_HANDLES_H
#define OXCFG_PLATFORM_SCOPED_HANDLES_H

#include <dirent.h>
#include <ifaddrs.h>
#include <spawn.h>

namespace OxBase {

// A directory stream of opendir(3).
class UniqueDir {
 public:
  explicit UniqueDir(const char* path) noexcept;
  ~UniqueDir();
  UniqueDir(const UniqueDir&) = delete;
  UniqueDir& operator=(const UniqueDir&) = delete;

  DIR* get() const { return dir_; }
  bool valid() const { return dir_ != nullptr; }

 private:
  DIR* dir_;
};

// The list of getifaddrs(3); null (and ok() false, errno set) when the call
// failed.
class IfAddrList {
 public:
  IfAddrList() noexcept;
  ~IfAddrList();
  IfAddrList(const IfAddrList&) = delete;
  IfAddrList& operator=(const IfAddrList&) = delete;

  bool ok() const { return ok_; }
  const ifaddrs* head() const { return list_; }

 private:
  ifaddrs* list_ = nullptr;
  bool ok_ = false;
};

// posix_spawn file actions, initialised on construction.
class SpawnFileActions {
 public:
  SpawnFileActions() noexcept;
  ~SpawnFileActions();
  SpawnFileActions(const SpawnFileActions&) = delete;
  SpawnFileActions& operator=(const SpawnFileActions&) = delete;

  bool ok() const { return ok_; }
  posix_spawn_file_actions_t* get() { return &actions_; }

 private:
  posix_spawn_file_actions_t actions_;
  bool ok_;
};

// posix_spawn attributes, initialised on construction.
class SpawnAttr {
 public:
  SpawnAttr() noexcept;
  ~SpawnAttr();
  SpawnAttr(const SpawnAttr&) = delete;
  SpawnAttr& operator=(const SpawnAttr&) = delete;

  bool ok() const { return ok_; }
  posix_spawnattr_t* get() { return &attr_; }

 private:
  posix_spawnattr_t attr_;
  bool ok_;
};

}  // namespace OxBase

#endif  // OXCFG_PLATFORM_SCOPED_HANDLES_H
