#include "platform/file_tree.h"

#include <dirent.h>
#include <sys/stat.h>

#include <cerrno>
#include <vector>

#include "platform/env.h"

namespace OxBase {

EntryKind InspectEntry(const std::string& path, uint64_t* size) {
  struct stat st;
  if (::lstat(path.c_str(), &st) != 0) return EntryKind::kMissing;
  if (S_ISLNK(st.st_mode)) return EntryKind::kLink;
  if (S_ISDIR(st.st_mode)) return EntryKind::kDir;
  if (!S_ISREG(st.st_mode)) return EntryKind::kOther;
  if (size) *size = static_cast<uint64_t>(st.st_size);
  return EntryKind::kFile;
}

namespace {

// Names in `dir` (no "." and ".."); false when it cannot be listed.
bool listNames(const std::string& dir, std::vector<std::string>* names) {
  DIR* d = ::opendir(dir.c_str());
  if (!d) return false;
  while (dirent* e = ::readdir(d)) {
    std::string n = e->d_name;
    if (n != "." && n != "..") names->push_back(n);
  }
  ::closedir(d);
  return true;
}

}  // namespace

bool RemoveTree(const std::string& path, int maxDepth) {
  Env* env = Env::Current();
  switch (InspectEntry(path)) {
    case EntryKind::kMissing:
      return errno == ENOENT;
    case EntryKind::kDir: {
      if (maxDepth <= 0) return false;
      std::vector<std::string> names;
      listNames(path, &names);
      for (const auto& n : names) RemoveTree(path + "/" + n, maxDepth - 1);
      return env->RemoveDir(path) == 0 || errno == ENOENT;
    }
    default:
      return env->Unlink(path) == 0 || errno == ENOENT;
  }
}

}  // namespace OxBase
