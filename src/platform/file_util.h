// Whole-file reads and atomic, durable whole-file replacement.
#ifndef OXCFG_PLATFORM_FILE_UTIL_H
#define OXCFG_PLATFORM_FILE_UTIL_H

#include <cstddef>
#include <string>

namespace OxBase {

enum class FileMode {
  kKeep,    // keep the target's permission bits (0644 less umask when new)
  kSecret,  // 0600, also tightening a target that had looser bits
};

// The stage at which an atomic write stopped.
enum class WriteStage {
  kDone,        // the new content is in place and durable
  kNoLock,      // the lock guarding the target was not held: nothing written
  kCreateTemp,  // the temporary file could not be created (or its mode set)
  kWrite,       // short or failed write of the temporary file
  kSync,        // fsync or close of the temporary file failed
  kRename,      // the rename over the target failed
  kSyncDir,     // the rename succeeded; only the directory fsync failed
};

struct WriteOutcome {
  WriteStage stage = WriteStage::kDone;
  int error = 0;  // errno of the failed stage
  size_t written = 0;  // bytes of the temporary file written before a kWrite failure

  bool ok() const { return stage == WriteStage::kDone; }
  // True when the target now holds the new content, which is the case also
  // when only the directory fsync failed: a caller must then keep its memory
  // in step with the disk rather than roll it back.
  bool landed() const { return stage == WriteStage::kDone || stage == WriteStage::kSyncDir; }
};

// Replaces `path` with `len` bytes of `data`: writes a temporary file
// ".<name>.tmp.<pid>.<n>" in the same directory, fsyncs it, renames it over
// `path` and fsyncs the directory. A crash or failure at any point leaves
// either the old or the new file, never a partial one, and no temporary file
// remains after a failure (a crash leaves one; see RemoveStaleTemporaries).
// Refused (kNoLock, nothing touched) while a ScopedWriteRefusal of `path` is
// alive on the calling thread. All writes go through Env::Current(); errno is
// also set on failure.
WriteOutcome WriteFileAtomic(const std::string& path, const void* data, size_t len,
                             FileMode mode = FileMode::kKeep);
inline WriteOutcome WriteFileAtomic(const std::string& path, const std::string& data,
                                    FileMode mode = FileMode::kKeep) {
  return WriteFileAtomic(path, data.data(), data.size(), mode);
}

// While alive, makes every WriteFileAtomic of exactly `path` on the calling
// thread fail with WriteStage::kNoLock and `error`, without touching the
// disk. A writer that must hold a cross-process lock on a file and could not
// take it installs one, so that whichever function the write then goes
// through, it refuses instead of writing unprotected. Instances nest; they
// must be destroyed on the thread that made them (scoped use).
class ScopedWriteRefusal {
 public:
  ScopedWriteRefusal(const std::string& path, int error);
  ~ScopedWriteRefusal();
  ScopedWriteRefusal(const ScopedWriteRefusal&) = delete;
  ScopedWriteRefusal& operator=(const ScopedWriteRefusal&) = delete;

  // True, with the refusal's error, when writes of `path` are refused on the
  // calling thread.
  static bool Refused(const std::string& path, int* error);

 private:
  std::string path_;
  int error_;
  ScopedWriteRefusal* outer_;
};

// Removes the temporary files that writers of `path` killed before their
// rename left beside it (".<name>.tmp.<pid>.<n>"), when the writing process
// no longer exists. Temporaries of a live process, this one included, are
// never touched (a reused pid keeps a stale file: harmless). Call it holding
// the lock that guards `path`. Returns the number removed; removal goes
// through Env::Current().
int RemoveStaleTemporaries(const std::string& path);
// The same for every target in `dir` (for the start of the library).
int RemoveStaleTemporariesIn(const std::string& dir);

// Reads the whole regular file into `out`. Fails (false, errno set) when the
// file cannot be opened or read, or when it is larger than `maxBytes`
// (errno EFBIG).
bool ReadWholeFile(const std::string& path, std::string* out, size_t maxBytes);

// Directory part of a path, "." when it has none.
std::string DirName(const std::string& path);

}  // namespace OxBase

#endif  // OXCFG_PLATFORM_FILE_UTIL_H
