// Inspecting and removing directory entries without following links: for
// folders whose content came from outside (an unpacked archive), where a
// symbolic link must never lead a read or a removal elsewhere.
#ifndef OXCFG_PLATFORM_FILE_TREE_H
#define OXCFG_PLATFORM_FILE_TREE_H

#include <cstdint>
#include <string>

namespace OxBase {

enum class EntryKind {
  kMissing,  // nothing there (or it cannot be inspected)
  kFile,     // a regular file
  kDir,      // a directory
  kLink,     // a symbolic link (not followed)
  kOther,    // a FIFO, socket or device
};

// The kind of `path` itself (lstat: a link is reported as a link) and, for a
// regular file, its size in `size` when given.
EntryKind InspectEntry(const std::string& path, uint64_t* size = nullptr);

// Removes `path` and, when it is a directory, everything below it, down to
// `maxDepth` levels. Links are removed, never followed. Removals go through
// Env::Current(). True when nothing is left at `path` (also when there was
// nothing to begin with).
bool RemoveTree(const std::string& path, int maxDepth = 16);

}  // namespace OxBase

#endif  // OXCFG_PLATFORM_FILE_TREE_H
