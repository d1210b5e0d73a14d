// The setters of CNetworkCfg. They share one read-modify-write routine,
// driven by a table that says, per setter, which elements change, whether an
// unchanged value returns at once, and whether memory follows. Memory never
// runs ahead of the file: it changes only once the new text landed, still
// under the setter's mutex and the file's transaction, through the relaxed
// atomic stores the lock-free getters pair with.
#include <oxconfigmgr/OxNetworkCfg.h>

#include <cstddef>
#include <string>

#include "frame/config_store.h"
#include "frame/config_txn.h"
#include "frame/osl_guard.h"
#include "network/network_fields.h"
#include "network/network_internal.h"
#include "platform/osl.h"
#include "platform/xlog.h"

namespace OxConfigMgr {

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
  // Whether memory follows the new value once the write landed.
  enum Memory {
    kNever,       // the file only; getters keep the loaded value
    kReplaced,    // each value whose element's text was replaced
    kAfterWrite,  // the value, also when its element is missing
  };
  static constexpr int kNone = -1;

  const char* name;  // the setter, for its log line
  // The value(s) changed, in this order; a second one (kNone when absent)
  // has the same parent element as the first.
  int fields[2];
  bool unchangedTest;  // equal to memory (both values for a pair): 0 at once
  Memory memory;
  bool direct;  // CXmlBase::LoadFile/WriteToFile instead of read/writeConfigFile

  static const SetterRow& get(Id id);
  OSL_Mutex* mutex() const;
  const Field& field(int i) const { return Field::get(static_cast<Field::Id>(fields[i])); }
  bool pair() const { return fields[1] != kNone; }
  bool equalsMemory(const CNetworkCfg& cfg, uint32_t first, uint32_t second) const;
};

const CNetworkCfg::SetterRow& CNetworkCfg::SetterRow::get(Id id) {
  using F = Field;
  constexpr bool Y = true, N = false;
  // clang-format off
  static const SetterRow kTable[kCount] = {
    {"setHttpPort", {F::kHttpPort, kNone}, Y, kReplaced, N},
    {"setHttpsPort", {F::kHttpsPort, kNone}, Y, kReplaced, N},
    {"setHttpsEnable", {F::kHttpsEnable, kNone}, Y, kReplaced, N},
    {"setRtspPort", {F::kRtspPort, kNone}, Y, kAfterWrite, N},
    {"setExtHttpPort", {F::kExtHttpPort, kNone}, Y, kReplaced, N},
    {"setExtHttpsPort", {F::kExtHttpsPort, kNone}, Y, kReplaced, N},
    {"setExtRtspPort", {F::kExtRtspPort, kNone}, Y, kReplaced, N},
    {"setPssUploadPort", {F::kPssUploadPort, kNone}, N, kNever, N},
    {"setExtPssUploadPort", {F::kExtPssUploadPort, kNone}, Y, kNever, N},
    {"setLumenRegPort", {F::kLumenRegPort, kNone}, N, kNever, N},
    {"setLumenAlarmPort", {F::kLumenAlarmPort, kNone}, N, kNever, N},
    {"setLumenStreamPort", {F::kLumenStreamMinPort, F::kLumenStreamMaxPort}, N, kNever, N},
    {"setLumenV5RegPort", {F::kLumenV5RegPort, kNone}, N, kNever, N},
    {"setLumenV5AlarmPort", {F::kLumenV5AlarmPort, kNone}, N, kNever, N},
    {"setLumenV5VedioAlarmPort", {F::kLumenV5VideoAlarmPort, kNone}, N, kNever, N},
    {"setLumenV5AcsAlarmPort", {F::kLumenV5AcsAlarmPort, kNone}, N, kNever, N},
    {"setLumenV5StreamPort", {F::kLumenV5StreamPort, kNone}, N, kNever, N},
    {"setLumenV5PlayBackPort", {F::kLumenV5PlayBackPort, kNone}, N, kNever, N},
    {"setLumenV5TwowayAudioPort", {F::kLumenV5TwowayAudioPort, kNone}, N, kNever, N},
    {"setExtLumenRegPort", {F::kExtLumenRegPort, kNone}, Y, kNever, N},
    {"setExtLumenAlarmPort", {F::kExtLumenAlarmPort, kNone}, Y, kNever, N},
    {"setExtLumenStreamPort", {F::kExtLumenStreamMinPort, F::kExtLumenStreamMaxPort}, Y, kNever, N},
    {"setExtLumenV5RegPort", {F::kExtLumenV5RegPort, kNone}, Y, kNever, N},
    {"setExtLumenV5AlarmPort", {F::kExtLumenV5AlarmPort, kNone}, Y, kNever, N},
    {"setExtLumenV5VedioAlarmPort", {F::kExtLumenV5VideoAlarmPort, kNone}, Y, kNever, N},
    {"setExtLumenV5AcsAlarmPort", {F::kExtLumenV5AcsAlarmPort, kNone}, Y, kNever, N},
    {"setExtLumenV5StreamPort", {F::kExtLumenV5StreamPort, kNone}, Y, kNever, N},
    {"setExtLumenV5PlayBackPort", {F::kExtLumenV5PlayBackPort, kNone}, Y, kNever, N},
    {"setExtLumenV5TwowayAudioPort", {F::kExtLumenV5TwowayAudioPort, kNone}, Y, kNever, N},
    {"setPlatformPortMapping", {F::kPlatformEnable, kNone}, Y, kAfterWrite, N},
    {"setDevicePortMapping", {F::kDeviceEnable, kNone}, Y, kAfterWrite, N},
    {"setWISP5AlarmPortType", {F::kAlarmPortType, kNone}, Y, kAfterWrite, N},
    {"setDevKeepAliveParam", {F::kKeepAliveSeconds, F::kKeepAliveCount}, N, kReplaced, Y},
  };
  // clang-format on
  return kTable[id];
}

// One mutex per setter, made on first use.
OSL_Mutex* CNetworkCfg::SetterRow::mutex() const {
  static OSL_Mutex mutexes[kCount];
  return &mutexes[this - &get(static_cast<Id>(0))];
}

bool CNetworkCfg::SetterRow::equalsMemory(const CNetworkCfg& cfg, uint32_t first, uint32_t second) const {
  // Compared as the member holds them: ports in 16 bits.
  const Field& f = field(0);
  const bool port = f.kind == Field::kPort;
  if (f.read(cfg) != (port ? static_cast<uint16_t>(first) : first)) return false;
  return !pair() || field(1).read(cfg) == static_cast<uint16_t>(second);
}

// The read-modify-write shared by every setter: the unchanged test, the
// setter's own mutex, the file transaction, the walk to the element(s),
// their replacement, the write, and memory where the row says.
uint32_t CNetworkCfg::runSetter(const SetterRow& row, uint32_t first, uint32_t second) {
  bool read = false;
  try {
    const Field& f = row.field(0);
    if (row.unchangedTest && row.equalsMemory(*this, first, second)) return 0;

    OSL_Guard guard(row.mutex());
    const std::string path = getConfigFilePath();
    ConfigFileTxn txn(path);
    CXmlBase xml;
    read = row.direct ? xml.LoadFile(path) == 1 : readConfigFile(xml) == 1;
    if (!read) return 2;

    bool inside = xml.FindElem("Config") && xml.IntoElem() && xml.FindElem("Network") && xml.IntoElem();
    for (const char* const* p = f.path; inside && p < f.path + 2 && *p; ++p) {
      inside = xml.FindElem(*p) && xml.IntoElem();
    }
    const Field* g = row.pair() ? &row.field(1) : nullptr;
    bool replaced[2] = {false, false};
    if (inside && xml.FindElem(f.leaf)) {
      const std::string text = f.text(first);
      replaced[0] = netinternal::modifyText(xml, f.leaf, text.c_str()) == 1;
      if (!replaced[0] && f.kind != Field::kMapping) return 1;
      if (g && xml.FindElem(g->leaf)) {
        const std::string text2 = g->text(second);
        if (netinternal::modifyText(xml, g->leaf, text2.c_str()) != 1) return 1;
        replaced[1] = true;
      }
    }

    bool written = row.direct ? xml.WriteToFile(path) == 1 : writeConfigFile(xml) == 1;
    if (!written) return 3;
    if (row.memory == SetterRow::kAfterWrite) {
      f.store(*this, first);
      if (f.kind == Field::kType) {
        xlog_format(3, "OXW", "[%s(%d)] [%d]setWISP5AlarmPortType", row.name, __LINE__,
                    static_cast<int32_t>(first));
      }
    } else if (row.memory == SetterRow::kReplaced) {
      if (replaced[0]) f.store(*this, first);
      if (replaced[1]) g->store(*this, second);
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
