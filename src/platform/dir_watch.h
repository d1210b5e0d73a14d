// Facts about the names a directory watch reports (the watch itself is part
// of Env).
#ifndef OXCFG_PLATFORM_DIR_WATCH_H
#define OXCFG_PLATFORM_DIR_WATCH_H

#include <string>

namespace OxBase {

// For a temporary file name of WriteFileAtomic (".<target>.tmp.<pid>.<n>")
// written by this process: true, with the target's name. False for any other
// name, and for temporaries of other processes.
bool IsOwnTemporary(const std::string& name, std::string* target);

}  // namespace OxBase

#endif  // OXCFG_PLATFORM_DIR_WATCH_H
