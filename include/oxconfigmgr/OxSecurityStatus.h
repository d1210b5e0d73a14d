// Security status object handed out by the instance manager.
#ifndef OXCONFIGMGR_OXSECURITYSTATUS_H
#define OXCONFIGMGR_OXSECURITYSTATUS_H

#include <oxconfigmgr/OxExport.h>

namespace OxBase {

// Placeholder for the security state the gateway's services share. The
// manager default-constructs one at start and hands out shared handles; it
// holds no state of its own yet. Thread-safe (stateless).
class OXCFG_API CSecurityStatus {
 public:
  CSecurityStatus();
  ~CSecurityStatus();
  CSecurityStatus(const CSecurityStatus&) = delete;
  CSecurityStatus& operator=(const CSecurityStatus&) = delete;
};

}  // namespace OxBase

#endif  // OXCONFIGMGR_OXSECURITYSTATUS_H
