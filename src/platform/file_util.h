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

// Replaces `path` with `len` bytes of `data`: writes a temporary file in the
// same directory, fsyncs it, renames it over `path` and fsyncs the directory.
// A crash or failure at any point leaves either the old or the new file, never
// a partial one, and no temporary file remains after a failure. All writes go
// through Env::Current(). Returns 0, or -1 with errno set.
int WriteFileAtomic(const std::string& path, const void* data, size_t len,
                    FileMode mode = FileMode::kKeep);
inline int WriteFileAtomic(const std::string& path, const std::string& data,
                           FileMode mode = FileMode::kKeep) {
  return WriteFileAtomic(path, data.data(), data.size(), mode);
}

// Reads the whole regular file into `out`. Fails (false, errno set) when the
// file cannot be opened or read, or when it is larger than `maxBytes`
// (errno EFBIG).
bool ReadWholeFile(const std::string& path, std::string* out, size_t maxBytes);

// Directory part of a path, "." when it has none.
std::string DirName(const std::string& path);

}  // namespace OxBase

#endif  // OXCFG_PLATFORM_FILE_UTIL_H
