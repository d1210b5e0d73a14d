#include <oxconfigmgr/OxSecurityStatus.h>

namespace OxBase {

CSecurityStatus::CSecurityStatus() = default;
CSecurityStatus::~CSecurityStatus() = default;

}  // namespace OxBase
