// The working directory of the fuzz harnesses that feed files to the
// library: made once per process, entered, and removed with everything in
// it at exit. Durability does not matter to a fuzzer, so the environment
// installed with it makes fsync and directory sync no-ops: the library's
// atomic writes still go through their temporary file and rename, only
// without waiting for the disk, which makes each execution many times
// faster.
#ifndef OXCFG_FUZZ_FUZZ_WORKDIR_H
#define OXCFG_FUZZ_FUZZ_WORKDIR_H

#include <ftw.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <initializer_list>
#include <string>

#include "platform/env.h"

namespace oxfuzz {

class NoSyncEnv : public OxBase::EnvWrapper {
 public:
  NoSyncEnv() : EnvWrapper(OxBase::Env::Default()) {}
  int Fsync(int) override { return 0; }
  int SyncDir(const std::string&) override { return 0; }
};

inline std::string& workDirPath() {
  static std::string dir;
  return dir;
}

inline int removeEntry(const char* path, const struct stat*, int, struct FTW*) { return ::remove(path); }

inline void removeWorkDir() { ::nftw(workDirPath().c_str(), removeEntry, 16, FTW_DEPTH | FTW_PHYS); }

// Makes "oxcfg-<name>-fuzz-XXXXXX" with the given subfolders in
// $OXCFG_FUZZ_WORK_ROOT when that is set (the runner's own folder, which it
// removes even after a crash, when the exit handler below does not run),
// else in the shared memory file system when there is one (a disk file
// system spends most of an execution finding inodes for the files each
// input creates and removes), otherwise in /tmp; enters it and installs the
// NoSyncEnv. The first call does it, later calls return the same
// directory. Aborts the process when the directory cannot be made.
inline const std::string& enterWorkDir(const char* name, std::initializer_list<const char*> subdirs = {}) {
  static const bool ready = [&] {
    const char* root = std::getenv("OXCFG_FUZZ_WORK_ROOT");
    const char* base = root && *root ? root : ::access("/dev/shm", W_OK | X_OK) == 0 ? "/dev/shm" : "/tmp";
    std::string tmpl = std::string(base) + "/oxcfg-" + name + "-fuzz-XXXXXX";
    if (!::mkdtemp(&tmpl[0]) || ::chdir(tmpl.c_str()) != 0) return false;
    workDirPath() = tmpl;
    std::atexit(removeWorkDir);
    for (const char* sub : subdirs) ::mkdir(sub, 0755);
    static NoSyncEnv env;
    OxBase::Env::Install(&env);
    return true;
  }();
  if (!ready) std::abort();
  return workDirPath();
}

// Writes a harness input in place, relative to the working directory: the
// library reads it as it would any file.
inline bool putFile(const char* name, const void* data, size_t size) {
  FILE* f = std::fopen(name, "wb");
  if (!f) return false;
  const bool ok = std::fwrite(data, 1, size, f) == size;
  return std::fclose(f) == 0 && ok;
}
inline bool putFile(const char* name, const std::string& text) { return putFile(name, text.data(), text.size()); }

}  // namespace oxfuzz

#endif  // OXCFG_FUZZ_FUZZ_WORKDIR_H
