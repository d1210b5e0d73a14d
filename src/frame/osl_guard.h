#ifndef OXCFG_FRAME_OSL_GUARD_H
#define OXCFG_FRAME_OSL_GUARD_H

#include "platform/osl.h"

namespace OxConfigMgr {

// Scope lock over an OSL_Mutex that can be released early; after Release()
// the destructor does nothing.
class OSL_Guard {
 public:
  explicit OSL_Guard(OSL_Mutex* mutex) : mutex_(mutex) {
    if (mutex_) OSL_Mutex_Lock(mutex_);
  }
  ~OSL_Guard() { Release(); }
  OSL_Guard(const OSL_Guard&) = delete;
  OSL_Guard& operator=(const OSL_Guard&) = delete;

  void Release() {
    if (!mutex_) return;
    OSL_Mutex_Unlock(mutex_);
    mutex_ = nullptr;
  }

 private:
  OSL_Mutex* mutex_;
};

}  // namespace OxConfigMgr

#endif  // OXCFG_FRAME_OSL_GUARD_H
