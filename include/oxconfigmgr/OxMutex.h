// The mutex type of the platform runtime, as it appears in public classes.
//
// An OSL_Mutex is a plain (non-recursive) mutex. Public classes hold one by
// value; it is neither copyable nor movable.
#ifndef OXCONFIGMGR_OXMUTEX_H
#define OXCONFIGMGR_OXMUTEX_H

#include <mutex>

struct OSL_Mutex {
  std::mutex impl;
};

#endif  // OXCONFIGMGR_OXMUTEX_H
