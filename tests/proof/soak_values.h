// The values the soak helper writes and the tests accept: every value in a
// file after a crash must be the factory one or one of these.
#ifndef OXCFG_TESTS_PROOF_SOAK_VALUES_H
#define OXCFG_TESTS_PROOF_SOAK_VALUES_H

#include <oxconfigmgr/OxConfigMgr.h>

#include <cstdint>
#include <string>

namespace oxproof {

constexpr unsigned kHttpPortBase = 8000;
constexpr unsigned kHttpPortCount = 50;
constexpr unsigned kProductNameCount = 20;
constexpr unsigned kPasswordCount = 20;
constexpr unsigned kArcPortBase = 9000;
constexpr unsigned kArcPortCount = 50;

inline std::string productName(unsigned i) { return "soak-product-" + std::to_string(i); }
// Long enough to be found verbatim in a log, never a substring of other text.
inline std::string password(unsigned i) { return "Soak#Secret-" + std::to_string(i) + "-q7Zx"; }

using PortSetter = uint32_t (OxConfigMgr::CNetworkCfg::*)(unsigned short);

// One port per writer of the lost-update test, with its element under
// "Config"/"Network".
struct PortSlot {
  PortSetter setter;
  const char* path[4];
};

constexpr int kPortSlotCount = 16;
inline const PortSlot kPortSlots[kPortSlotCount] = {
    {&OxConfigMgr::CNetworkCfg::setLumenRegPort, {"PortMapping", "LumenReg", "Port", nullptr}},
    {&OxConfigMgr::CNetworkCfg::setLumenAlarmPort, {"PortMapping", "LumenAlarm", "Port", nullptr}},
    {&OxConfigMgr::CNetworkCfg::setLumenV5RegPort, {"PortMapping", "LumenV5Reg", "Port", nullptr}},
    {&OxConfigMgr::CNetworkCfg::setLumenV5AlarmPort, {"PortMapping", "LumenV5Alarm", "Port", nullptr}},
    {&OxConfigMgr::CNetworkCfg::setLumenV5VedioAlarmPort, {"PortMapping", "LumenV5VideoAlarm", "Port", nullptr}},
    {&OxConfigMgr::CNetworkCfg::setLumenV5StreamPort, {"PortMapping", "LumenV5Stream", "Port", nullptr}},
    {&OxConfigMgr::CNetworkCfg::setLumenV5PlayBackPort, {"PortMapping", "LumenV5PlayBack", "Port", nullptr}},
    {&OxConfigMgr::CNetworkCfg::setLumenV5TwowayAudioPort, {"PortMapping", "LumenV5TwoWayAudio", "Port", nullptr}},
    {&OxConfigMgr::CNetworkCfg::setLumenV5AcsAlarmPort, {"PortMapping", "LumenV5AcsAlarm", "Port", nullptr}},
    {&OxConfigMgr::CNetworkCfg::setPssUploadPort, {"PSS", "Upload", "Port", nullptr}},
    {&OxConfigMgr::CNetworkCfg::setExtLumenRegPort, {"PortMapping", "LumenReg", "ExternalPort", nullptr}},
    {&OxConfigMgr::CNetworkCfg::setExtLumenAlarmPort, {"PortMapping", "LumenAlarm", "ExternalPort", nullptr}},
    {&OxConfigMgr::CNetworkCfg::setExtLumenV5RegPort, {"PortMapping", "LumenV5Reg", "ExternalPort", nullptr}},
    {&OxConfigMgr::CNetworkCfg::setExtLumenV5AlarmPort, {"PortMapping", "LumenV5Alarm", "ExternalPort", nullptr}},
    {&OxConfigMgr::CNetworkCfg::setExtLumenV5StreamPort, {"PortMapping", "LumenV5Stream", "ExternalPort", nullptr}},
    {&OxConfigMgr::CNetworkCfg::setExtLumenV5PlayBackPort, {"PortMapping", "LumenV5PlayBack", "ExternalPort", nullptr}},
};

// Iteration k (from 1) of slot s writes this port.
inline unsigned lostUpdateValue(int slot, int k) { return 40000u + static_cast<unsigned>(slot) * 500u + static_cast<unsigned>(k); }

}  // namespace oxproof

#endif  // OXCFG_TESTS_PROOF_SOAK_VALUES_H
