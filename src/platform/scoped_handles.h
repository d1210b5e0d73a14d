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

// A posix_spawn object (attributes, file actions), initialised on
// construction and destroyed with it; ok() is false when initialising failed.
template <typename T, int (*Init)(T*), int (*Destroy)(T*)>
class SpawnObject {
 public:
  SpawnObject() noexcept : ok_(Init(&obj_) == 0) {}
  ~SpawnObject() {
    if (ok_) Destroy(&obj_);
  }
  SpawnObject(const SpawnObject&) = delete;
  SpawnObject& operator=(const SpawnObject&) = delete;

  bool ok() const { return ok_; }
  T* get() { return &obj_; }

 private:
  T obj_;
  bool ok_;
};

using SpawnFileActions = SpawnObject<posix_spawn_file_actions_t, posix_spawn_file_actions_init,
                                     posix_spawn_file_actions_destroy>;
using SpawnAttr = SpawnObject<posix_spawnattr_t, posix_spawnattr_init, posix_spawnattr_destroy>;

}  // namespace OxBase

#endif  // OXCFG_PLATFORM_SCOPED_HANDLES_H
