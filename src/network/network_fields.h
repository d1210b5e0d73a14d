// The one description of where each value of CNetworkCfg lives in the
// "Network" section: read by the loader, written by the setters.
#ifndef OXCFG_NETWORK_NETWORK_FIELDS_H
#define OXCFG_NETWORK_NETWORK_FIELDS_H

#include <oxconfigmgr/OxNetworkCfg.h>

#include <cstdint>
#include <string>

namespace OxConfigMgr {

struct CNetworkCfg::Field {
  enum Id {
    kHttpPort, kExtHttpPort, kHttpsPort, kHttpsEnable, kExtHttpsPort, kRtspPort, kExtRtspPort,
    kPssUploadPort, kExtPssUploadPort, kPssDownloadPort, kExtPssDownloadPort,
    kDeviceEnable, kPlatformEnable, kAlarmPortType,
    kLumenRegPort, kExtLumenRegPort, kLumenAlarmPort, kExtLumenAlarmPort,
    kLumenStreamMinPort, kLumenStreamMaxPort, kExtLumenStreamMinPort, kExtLumenStreamMaxPort,
    kLumenV5RegPort, kExtLumenV5RegPort, kLumenV5AlarmPort, kExtLumenV5AlarmPort,
    kLumenV5VideoAlarmPort, kExtLumenV5VideoAlarmPort, kLumenV5StreamPort, kExtLumenV5StreamPort,
    kLumenV5PlayBackPort, kExtLumenV5PlayBackPort, kLumenV5TwowayAudioPort, kExtLumenV5TwowayAudioPort,
    kLumenV5AcsAlarmPort, kExtLumenV5AcsAlarmPort,
    kKeepAliveSeconds, kKeepAliveCount,
    kCount
  };
  // How the value is held in memory and written as text.
  enum Kind {
    kPort,     // uint16_t member, decimal text (read truncated to 16 bits)
    kInt,      // int32_t member, decimal text
    kMapping,  // int32_t member, "true"/"false"
    kType,     // wisp5AlarmPortType, decimal text
  };

  const char* path[2];  // elements under Config/Network down to the leaf's parent (null-ended)
  const char* leaf;
  Kind kind;
  uint16_t CNetworkCfg::*port;  // kPort
  int32_t CNetworkCfg::*value;  // kInt, kMapping

  static const Field& get(Id id);

  // The member, as a number.
  uint32_t read(const CNetworkCfg& cfg) const;
  // Stores `v` in the member, atomically for the lock-free getters.
  void store(CNetworkCfg& cfg, uint32_t v) const;
  // The element text for `v`.
  std::string text(uint32_t v) const;
};

}  // namespace OxConfigMgr

#endif  // OXCFG_NETWORK_NETWORK_FIELDS_H
