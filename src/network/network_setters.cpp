// The setters of CNetworkCfg. They share one read-modify-write routine,
// driven by a table that says, per setter, which elements change, whether an
// unchanged value returns at once, and when memory follows.
#include <oxconfigmgr/OxNetworkCfg.h>

#include <cstddef>
#include <string>

#include "frame/config_store.h"
#include "frame/config_txn.h"
#include "frame/osl_guard.h"
#include "network/network_internal.h"
#include "platform/osl.h"
#include "platform/xlog.h"

namespace OxConfigMgr {

using netinternal::loadRelaxed;
using netinternal::storeRelaxed;
using OxBase::CXmlBase;

struct CNetworkCfg::SetterRow {
  enum Id {
    kHttpPort, kHttpsPort, kHttpsEnable, kRtspPort, kExtHttpPort, kExtHttpsPort, kExtRtspPort,
    kPssUploadPort, kExtPssUploadPort,
    kLumenRegPort, kLumenAlarmPort, kLumenStreamPort,
    kLumenV5RegPort, kLumenV5AlarmPort, kLumenV5VideoAlarmPort, kLumenV5AcsAlarmPort,
    kLumenV5StreamPort, kLumenV5PlayBackPort, kLumenV5TwowayAudioPort,
    kExtLumenRegPort, kExtLumenAlarmPort, kExtLumenStreamPort,
    kExtLumenV5RegPort, kExtLumenV5AlarmPort, kExtLumenV5VideoAlarmPort, kExtLumenV5AcsAlarmPort,
    kExtLumenV5StreamPort, kExtLumenV5PlayBackPort, kExtLumenV5TwowayAudioPort,
    kPlatformPortMapping, kDevicePortMapping, kWISP5AlarmPortType, kDevKeepAliveParam,
    kCount
  };
  // How the value is held and written.
  enum Kind {
    kPort,     // uint16_t member, decimal text
    kInt,      // int32_t member, decimal text
    kMapping,  // int32_t member, "true"/"false"; a refusal of the text is ignored
    kType,     // WISP5AlarmPortType member, decimal text
  };
  // When memory follows the new value.
  enum Memory {
    kNever,        // the file only; getters keep the loaded value
    kAfterModify,  // once its element's text was replaced, before the write
    kFirst,        // before anything else, and again after the text was replaced
    kAfterWrite,   // after a successful write
  };

  const char* name;       // the setter, for its log line
  const char* path[3];    // elements entered under Config/Network (null-ended)
  const char* leaf[2];    // element(s) changed inside, in this order
  bool unchangedTest;     // equal to memory (both values for a pair): 0 at once
  Memory memory;
  Kind kind;
  uint16_t CNetworkCfg::*port[2];  // kPort: the member of each leaf
  int32_t CNetworkCfg::*value;     // kInt, kMapping
  bool direct;  // CXmlBase::LoadFile/WriteToFile instead of read/writeConfigFile

  static const SetterRow& get(Id id);
  OSL_Mutex* mutex() const;
  bool equalsMemory(const CNetworkCfg& cfg, uint32_t first, uint32_t second) const;
  void store(CNetworkCfg& cfg, int leafIndex, uint32_t v) const;
  std::string text(uint32_t v) const;
};

const CNetworkCfg::SetterRow& CNetworkCfg::SetterRow::get(Id id) {
  using C = CNetworkCfg;
  constexpr bool Y = true, N = false;
  // clang-format off
  static const SetterRow kTable[kCount] = {
    {"setHttpPort", {"HTTP"}, {"Port"}, Y, kAfterModify, kPort, {&C::httpPort}, nullptr, N},
    {"setHttpsPort", {"HTTPS"}, {"Port"}, Y, kAfterModify, kPort, {&C::httpsPort}, nullptr, N},
    {"setHttpsEnable", {"HTTPS"}, {"Enable"}, Y, kAfterModify, kInt, {}, &C::httpsEnable, N},
    {"setRtspPort", {"RTSP"}, {"Port"}, Y, kFirst, kPort, {&C::rtspPort}, nullptr, N},
    {"setExtHttpPort", {"HTTP"}, {"ExternalPort"}, Y, kAfterModify, kPort, {&C::extHttpPort}, nullptr, N},
    {"setExtHttpsPort", {"HTTPS"}, {"ExternalPort"}, Y, kAfterModify, kPort, {&C::extHttpsPort}, nullptr, N},
    {"setExtRtspPort", {"RTSP"}, {"ExternalPort"}, Y, kAfterModify, kPort, {&C::extRtspPort}, nullptr, N},
    {"setPssUploadPort", {"PSS", "Upload"}, {"Port"}, N, kNever, kPort, {&C::pssUploadPort}, nullptr, N},
    {"setExtPssUploadPort", {"PSS", "Upload"}, {"ExternalPort"}, Y, kNever, kPort, {&C::extPssUploadPort}, nullptr, N},
    {"setLumenRegPort", {"PortMapping", "LumenReg"}, {"Port"}, N, kNever, kPort, {&C::lumenRegPort}, nullptr, N},
    {"setLumenAlarmPort", {"PortMapping", "LumenAlarm"}, {"Port"}, N, kNever, kPort, {&C::lumenAlarmPort}, nullptr, N},
    {"setLumenStreamPort", {"PortMapping", "LumenStream"}, {"MinPort", "MaxPort"}, N, kNever, kPort,
     {&C::lumenStreamMinPort, &C::lumenStreamMaxPort}, nullptr, N},
    {"setLumenV5RegPort", {"PortMapping", "LumenV5Reg"}, {"Port"}, N, kNever, kPort, {&C::lumenV5RegPort}, nullptr, N},
    {"setLumenV5AlarmPort", {"PortMapping", "LumenV5Alarm"}, {"Port"}, N, kNever, kPort, {&C::lumenV5AlarmPort}, nullptr, N},
    {"setLumenV5VedioAlarmPort", {"PortMapping", "LumenV5VideoAlarm"}, {"Port"}, N, kNever, kPort,
     {&C::lumenV5VideoAlarmPort}, nullptr, N},
    {"setLumenV5AcsAlarmPort", {"PortMapping", "LumenV5AcsAlarm"}, {"Port"}, N, kNever, kPort,
     {&C::lumenV5AcsAlarmPort}, nullptr, N},
    {"setLumenV5StreamPort", {"PortMapping", "LumenV5Stream"}, {"Port"}, N, kNever, kPort,
     {&C::lumenV5StreamPort}, nullptr, N},
    {"setLumenV5PlayBackPort", {"PortMapping", "LumenV5PlayBack"}, {"Port"}, N, kNever, kPort,
     {&C::lumenV5PlayBackPort}, nullptr, N},
    {"setLumenV5TwowayAudioPort", {"PortMapping", "LumenV5TwoWayAudio"}, {"Port"}, N, kNever, kPort,
     {&C::lumenV5TwowayAudioPort}, nullptr, N},
    {"setExtLumenRegPort", {"PortMapping", "LumenReg"}, {"ExternalPort"}, Y, kNever, kPort,
     {&C::extLumenRegPort}, nullptr, N},
    {"setExtLumenAlarmPort", {"PortMapping", "LumenAlarm"}, {"ExternalPort"}, Y, kNever, kPort,
     {&C::extLumenAlarmPort}, nullptr, N},
    {"setExtLumenStreamPort", {"PortMapping", "LumenStream"}, {"ExternalMinPort", "ExternalMaxPort"}, Y, kNever,
     kPort, {&C::extLumenStreamMinPort, &C::extLumenStreamMaxPort}, nullptr, N},
    {"setExtLumenV5RegPort", {"PortMapping", "LumenV5Reg"}, {"ExternalPort"}, Y, kNever, kPort,
     {&C::extLumenV5RegPort}, nullptr, N},
    {"setExtLumenV5AlarmPort", {"PortMapping", "LumenV5Alarm"}, {"ExternalPort"}, Y, kNever, kPort,
     {&C::extLumenV5AlarmPort}, nullptr, N},
    {"setExtLumenV5VedioAlarmPort", {"PortMapping", "LumenV5VideoAlarm"}, {"ExternalPort"}, Y, kNever, kPort,
     {&C::extLumenV5VideoAlarmPort}, nullptr, N},
    {"setExtLumenV5AcsAlarmPort", {"PortMapping", "LumenV5AcsAlarm"}, {"ExternalPort"}, Y, kNever, kPort,
     {&C::extLumenV5AcsAlarmPort}, nullptr, N},
    {"setExtLumenV5StreamPort", {"PortMapping", "LumenV5Stream"}, {"ExternalPort"}, Y, kNever, kPort,
     {&C::extLumenV5StreamPort}, nullptr, N},
    {"setExtLumenV5PlayBackPort", {"PortMapping", "LumenV5PlayBack"}, {"ExternalPort"}, Y, kNever, kPort,
     {&C::extLumenV5PlayBackPort}, nullptr, N},
    {"setExtLumenV5TwowayAudioPort", {"PortMapping", "LumenV5TwoWayAudio"}, {"ExternalPort"}, Y, kNever, kPort,
     {&C::extLumenV5TwowayAudioPort}, nullptr, N},
    {"setPlatformPortMapping", {"PortMapping"}, {"PlatformEnable"}, Y, kAfterWrite, kMapping, {},
     &C::platformPortMapping, N},
    {"setDevicePortMapping", {"PortMapping"}, {"DeviceEnable"}, Y, kAfterWrite, kMapping, {},
     &C::devicePortMapping, N},
    {"setWISP5AlarmPortType", {"PortMapping"}, {"AlarmPortType"}, Y, kAfterWrite, kType, {}, nullptr, N},
    {"setDevKeepAliveParam", {"HeartbeatParam"}, {"KeepAliveSeconds", "KeepAliveCount"}, N, kAfterModify, kPort,
     {&C::keepAliveSeconds, &C::keepAliveCount}, nullptr, Y},
  };
  // clang-format on
  return kTable[id];
}

// One mutex per setter, made on first use.
OSL_Mutex* CNetworkCfg::SetterRow::mutex() const {
  static OSL_Mutex mutexes[kCount];
  return &mutexes[this - &get(static_cast<Id>(0))];
}

bool CNetworkCfg::SetterRow::equalsMemory(const CNetworkCfg& cfg, uint32_t first,
                                          uint32_t second) const {
  switch (kind) {
    case kPort:
      if (loadRelaxed(cfg.*port[0]) != static_cast<uint16_t>(first)) return false;
      return !leaf[1] || loadRelaxed(cfg.*port[1]) == static_cast<uint16_t>(second);
    case kInt:
    case kMapping:
      return loadRelaxed(cfg.*value) == static_cast<int32_t>(first);
    case kType:
      return static_cast<int32_t>(loadRelaxed(cfg.wisp5AlarmPortType)) == static_cast<int32_t>(first);
  }
  return false;
}

void CNetworkCfg::SetterRow::store(CNetworkCfg& cfg, int leafIndex, uint32_t v) const {
  switch (kind) {
    case kPort:
      storeRelaxed(cfg.*port[leafIndex], static_cast<uint16_t>(v));
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

std::string CNetworkCfg::SetterRow::text(uint32_t v) const {
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

// The read-modify-write shared by every setter: the unchanged test, the
// setter's own mutex, the file transaction, the walk to the element(s),
// their replacement, the write, and memory where the row says.
uint32_t CNetworkCfg::runSetter(const SetterRow& row, uint32_t first, uint32_t second) {
  bool read = false;
  try {
    if (row.unchangedTest && row.equalsMemory(*this, first, second)) return 0;
    if (row.memory == SetterRow::kFirst) row.store(*this, 0, first);

    OSL_Guard guard(row.mutex());
    const std::string path = getConfigFilePath();
    ConfigFileTxn txn(path);
    CXmlBase xml;
    read = row.direct ? xml.LoadFile(path) == 1 : readConfigFile(xml) == 1;
    if (!read) return 2;

    bool inside = xml.FindElem("Config") && xml.IntoElem() && xml.FindElem("Network") && xml.IntoElem();
    for (const char* const* p = row.path; inside && p < row.path + 3 && *p; ++p) {
      inside = xml.FindElem(*p) && xml.IntoElem();
    }
    if (inside && xml.FindElem(row.leaf[0])) {
      const std::string text = row.text(first);
      if (netinternal::modifyText(xml, row.leaf[0], text.c_str()) != 1 && row.kind != SetterRow::kMapping) {
        return 1;
      }
      if (row.memory == SetterRow::kAfterModify || row.memory == SetterRow::kFirst) row.store(*this, 0, first);
      if (row.leaf[1] && xml.FindElem(row.leaf[1])) {
        const std::string text2 = row.text(second);
        if (netinternal::modifyText(xml, row.leaf[1], text2.c_str()) != 1) return 1;
        if (row.memory == SetterRow::kAfterModify) row.store(*this, 1, second);
      }
    }

    bool written = row.direct ? xml.WriteToFile(path) == 1 : writeConfigFile(xml) == 1;
    if (!written) return 3;
    if (row.memory == SetterRow::kAfterWrite) {
      row.store(*this, 0, first);
      if (row.kind == SetterRow::kType) {
        xlog_format(3, "OXW", "[%s(%d)] [%d]setWISP5AlarmPortType", row.name, __LINE__,
                    static_cast<int32_t>(first));
      }
    }
    return 0;
  } catch (...) {
    return read ? 3 : 2;
  }
}

#define OXCFG_PORT_SETTER(method, id) \
  uint32_t CNetworkCfg::method(unsigned short port) { return runSetter(SetterRow::get(SetterRow::id), port, 0); }

OXCFG_PORT_SETTER(setHttpPort, kHttpPort)
OXCFG_PORT_SETTER(setHttpsPort, kHttpsPort)
OXCFG_PORT_SETTER(setRtspPort, kRtspPort)
OXCFG_PORT_SETTER(setExtHttpPort, kExtHttpPort)
OXCFG_PORT_SETTER(setExtHttpsPort, kExtHttpsPort)
OXCFG_PORT_SETTER(setExtRtspPort, kExtRtspPort)
OXCFG_PORT_SETTER(setPssUploadPort, kPssUploadPort)
OXCFG_PORT_SETTER(setExtPssUploadPort, kExtPssUploadPort)
OXCFG_PORT_SETTER(setLumenRegPort, kLumenRegPort)
OXCFG_PORT_SETTER(setLumenAlarmPort, kLumenAlarmPort)
OXCFG_PORT_SETTER(setLumenV5RegPort, kLumenV5RegPort)
OXCFG_PORT_SETTER(setLumenV5AlarmPort, kLumenV5AlarmPort)
OXCFG_PORT_SETTER(setLumenV5VedioAlarmPort, kLumenV5VideoAlarmPort)
OXCFG_PORT_SETTER(setLumenV5AcsAlarmPort, kLumenV5AcsAlarmPort)
OXCFG_PORT_SETTER(setLumenV5StreamPort, kLumenV5StreamPort)
OXCFG_PORT_SETTER(setLumenV5PlayBackPort, kLumenV5PlayBackPort)
OXCFG_PORT_SETTER(setLumenV5TwowayAudioPort, kLumenV5TwowayAudioPort)
OXCFG_PORT_SETTER(setExtLumenRegPort, kExtLumenRegPort)
OXCFG_PORT_SETTER(setExtLumenAlarmPort, kExtLumenAlarmPort)
OXCFG_PORT_SETTER(setExtLumenV5RegPort, kExtLumenV5RegPort)
OXCFG_PORT_SETTER(setExtLumenV5AlarmPort, kExtLumenV5AlarmPort)
OXCFG_PORT_SETTER(setExtLumenV5VedioAlarmPort, kExtLumenV5VideoAlarmPort)
OXCFG_PORT_SETTER(setExtLumenV5AcsAlarmPort, kExtLumenV5AcsAlarmPort)
OXCFG_PORT_SETTER(setExtLumenV5StreamPort, kExtLumenV5StreamPort)
OXCFG_PORT_SETTER(setExtLumenV5PlayBackPort, kExtLumenV5PlayBackPort)
OXCFG_PORT_SETTER(setExtLumenV5TwowayAudioPort, kExtLumenV5TwowayAudioPort)

#undef OXCFG_PORT_SETTER

uint32_t CNetworkCfg::setHttpsEnable(int enable) {
  return runSetter(SetterRow::get(SetterRow::kHttpsEnable), static_cast<uint32_t>(enable), 0);
}

uint32_t CNetworkCfg::setLumenStreamPort(unsigned short minPort, unsigned short maxPort) {
  return runSetter(SetterRow::get(SetterRow::kLumenStreamPort), minPort, maxPort);
}

uint32_t CNetworkCfg::setExtLumenStreamPort(unsigned short minPort, unsigned short maxPort) {
  return runSetter(SetterRow::get(SetterRow::kExtLumenStreamPort), minPort, maxPort);
}

uint32_t CNetworkCfg::setPlatformPortMapping(int enable) {
  return runSetter(SetterRow::get(SetterRow::kPlatformPortMapping), static_cast<uint32_t>(enable), 0);
}

uint32_t CNetworkCfg::setDevicePortMapping(int enable) {
  return runSetter(SetterRow::get(SetterRow::kDevicePortMapping), static_cast<uint32_t>(enable), 0);
}

uint32_t CNetworkCfg::setWISP5AlarmPortType(const WISP5AlarmPortType& type) {
  return runSetter(SetterRow::get(SetterRow::kWISP5AlarmPortType),
                   static_cast<uint32_t>(static_cast<int32_t>(type)), 0);
}

uint32_t CNetworkCfg::setDevKeepAliveParam(unsigned short seconds, unsigned short count) {
  return runSetter(SetterRow::get(SetterRow::kDevKeepAliveParam), seconds, count);
}

uint32_t CNetworkCfg::setWISP5AlarmPort(unsigned short port) {
  switch (getWISP5AlarmPortType()) {
    case WISP5_ALARM_PORT_VIDEO:
      return setLumenV5VedioAlarmPort(port);
    case WISP5_ALARM_PORT_ACS:
      return setLumenV5AcsAlarmPort(port);
  }
  OXLOG(4, "[%s(%d)] wisp5 Alarm port type unknown.");
  return setLumenV5VedioAlarmPort(port);
}

uint32_t CNetworkCfg::setExtWISP5AlarmPort(unsigned short port) {
  switch (getWISP5AlarmPortType()) {
    case WISP5_ALARM_PORT_VIDEO:
      return setExtLumenV5VedioAlarmPort(port);
    case WISP5_ALARM_PORT_ACS:
      return setExtLumenV5AcsAlarmPort(port);
  }
  OXLOG(4, "[%s(%d)] wisp5 Alarm port type unknown.");
  return setExtLumenV5VedioAlarmPort(port);
}

}  // namespace OxConfigMgr
