#include "platform/scoped_handles.h"

#include <cerrno>

namespace OxBase {

UniqueDir::UniqueDir(const char* path) noexcept : dir_(path ? ::opendir(path) : nullptr) {
  if (!path) errno = EINVAL;
}

UniqueDir::~UniqueDir() {
  if (!dir_) return;
  int saved = errno;
  ::closedir(dir_);
  errno = saved;
}

IfAddrList::IfAddrList() noexcept : ok_(::getifaddrs(&list_) == 0) {
  if (!ok_) list_ = nullptr;
}

IfAddrList::~IfAddrList() {
  if (list_) ::freeifaddrs(list_);
}

}  // namespace OxBase
