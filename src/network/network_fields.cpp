// Where each value of CNetworkCfg lives in the "Network" section.
#include "network/network_fields.h"

#include <string>

#include "network/network_internal.h"

namespace OxConfigMgr {

using netinternal::loadRelaxed;
using netinternal::storeRelaxed;

const CNetworkCfg::Field& CNetworkCfg::Field::get(Id id) {
  using C = CNetworkCfg;
  // clang-format off
  static const Field kTable[kCount] = {
    {{"HTTP"}, "Port", kPort, &C::httpPort, nullptr},
    {{"HTTP"}, "ExternalPort", kPort, &C::extHttpPort, nullptr},
    {{"HTTPS"}, "Port", kPort, &C::httpsPort, nullptr},
    {{"HTTPS"}, "Enable", kInt, nullptr, &C::httpsEnable},
    {{"HTTPS"}, "ExternalPort", kPort, &C::extHttpsPort, nullptr},
    {{"RTSP"}, "Port", kPort, &C::rtspPort, nullptr},
    {{"RTSP"}, "ExternalPort", kPort, &C::extRtspPort, nullptr},
    {{"PSS", "Upload"}, "Port", kPort, &C::pssUploadPort, nullptr},
    {{"PSS", "Upload"}, "ExternalPort", kPort, &C::extPssUploadPort, nullptr},
    {{"PSS", "Download"}, "Port", kPort, &C::pssDownloadPort, nullptr},
    {{"PSS", "Download"}, "ExternalPort", kPort, &C::extPssDownloadPort, nullptr},
    {{"PortMapping"}, "DeviceEnable", kMapping, nullptr, &C::devicePortMapping},
    {{"PortMapping"}, "PlatformEnable", kMapping, nullptr, &C::platformPortMapping},
    {{"PortMapping"}, "AlarmPortType", kType, nullptr, nullptr},
    {{"PortMapping", "LumenReg"}, "Port", kPort, &C::lumenRegPort, nullptr},
    {{"PortMapping", "LumenReg"}, "ExternalPort", kPort, &C::extLumenRegPort, nullptr},
    {{"PortMapping", "LumenAlarm"}, "Port", kPort, &C::lumenAlarmPort, nullptr},
    {{"PortMapping", "LumenAlarm"}, "ExternalPort", kPort, &C::extLumenAlarmPort, nullptr},
    {{"PortMapping", "LumenStream"}, "MinPort", kPort, &C::lumenStreamMinPort, nullptr},
    {{"PortMapping", "LumenStream"}, "MaxPort", kPort, &C::lumenStreamMaxPort, nullptr},
    {{"PortMapping", "LumenStream"}, "ExternalMinPort", kPort, &C::extLumenStreamMinPort, nullptr},
    {{"PortMapping", "LumenStream"}, "ExternalMaxPort", kPort, &C::extLumenStreamMaxPort, nullptr},
    {{"PortMapping", "LumenV5Reg"}, "Port", kPort, &C::lumenV5RegPort, nullptr},
    {{"PortMapping", "LumenV5Reg"}, "ExternalPort", kPort, &C::extLumenV5RegPort, nullptr},
    {{"PortMapping", "LumenV5Alarm"}, "Port", kPort, &C::lumenV5AlarmPort, nullptr},
    {{"PortMapping", "LumenV5Alarm"}, "ExternalPort", kPort, &C::extLumenV5AlarmPort, nullptr},
    {{"PortMapping", "LumenV5VideoAlarm"}, "Port", kPort, &C::lumenV5VideoAlarmPort, nullptr},
    {{"PortMapping", "LumenV5VideoAlarm"}, "ExternalPort", kPort, &C::extLumenV5VideoAlarmPort, nullptr},
    {{"PortMapping", "LumenV5Stream"}, "Port", kPort, &C::lumenV5StreamPort, nullptr},
    {{"PortMapping", "LumenV5Stream"}, "ExternalPort", kPort, &C::extLumenV5StreamPort, nullptr},
    {{"PortMapping", "LumenV5PlayBack"}, "Port", kPort, &C::lumenV5PlayBackPort, nullptr},
    {{"PortMapping", "LumenV5PlayBack"}, "ExternalPort", kPort, &C::extLumenV5PlayBackPort, nullptr},
    {{"PortMapping", "LumenV5TwoWayAudio"}, "Port", kPort, &C::lumenV5TwowayAudioPort, nullptr},
    {{"PortMapping", "LumenV5TwoWayAudio"}, "ExternalPort", kPort, &C::extLumenV5TwowayAudioPort, nullptr},
    {{"PortMapping", "LumenV5AcsAlarm"}, "Port", kPort, &C::lumenV5AcsAlarmPort, nullptr},
    {{"PortMapping", "LumenV5AcsAlarm"}, "ExternalPort", kPort, &C::extLumenV5AcsAlarmPort, nullptr},
    {{"HeartbeatParam"}, "KeepAliveSeconds", kPort, &C::keepAliveSeconds, nullptr},
    {{"HeartbeatParam"}, "KeepAliveCount", kPort, &C::keepAliveCount, nullptr},
  };
  // clang-format on
  return kTable[id];
}

uint32_t CNetworkCfg::Field::read(const CNetworkCfg& cfg) const {
  switch (kind) {
    case kPort:
      return loadRelaxed(cfg.*port);
    case kInt:
    case kMapping:
      return static_cast<uint32_t>(loadRelaxed(cfg.*value));
    case kType:
      return static_cast<uint32_t>(static_cast<int32_t>(loadRelaxed(cfg.wisp5AlarmPortType)));
  }
  return 0;
}

void CNetworkCfg::Field::store(CNetworkCfg& cfg, uint32_t v) const {
  switch (kind) {
    case kPort:
      storeRelaxed(cfg.*port, static_cast<uint16_t>(v));
      break;
    case kInt:
    case kMapping:
      storeRelaxed(cfg.*value, static_cast<int32_t>(v));
      break;
    case kType:
      storeRelaxed(cfg.wisp5AlarmPortType, static_cast<WISP5AlarmPortType>(static_cast<int32_t>(v)));
      break;
  }
}

std::string CNetworkCfg::Field::text(uint32_t v) const {
  switch (kind) {
    case kPort:
      return std::to_string(static_cast<uint16_t>(v));
    case kMapping:
      return static_cast<int32_t>(v) != 0 ? "true" : "false";
    case kInt:
    case kType:
      break;
  }
  return std::to_string(static_cast<int32_t>(v));
}

}  // namespace OxConfigMgr
