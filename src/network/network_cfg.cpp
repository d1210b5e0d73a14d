// CNetworkCfg: construction, loading of the "Network" section and getters.
#include <oxconfigmgr/OxNetworkCfg.h>

#include <algorithm>
#include <cstring>
#include <mutex>

#include "frame/config_store.h"
#include "frame/config_txn.h"
#include "network/network_fields.h"
#include "network/network_internal.h"
#include "platform/osl.h"
#include "platform/xlog.h"

namespace OxConfigMgr {

using netinternal::fieldText;
using netinternal::loadRelaxed;
using OxBase::CXmlBase;

namespace {

constexpr size_t kMaxAddrEntries = 16;

// Enters the element `name` of the current level; false when it is missing
// or has no child elements (the level is then unchanged).
bool enter(CXmlBase& xml, const char* name) { return xml.FindElem(name) && xml.IntoElem(); }

// Reads one "Addr" element (current) into `entry`, ORing its protocol bits.
void readAddr(CXmlBase& xml, _NIC_INFO_V4& entry, int32_t& addrListReady) {
  if (!xml.IntoElem()) return;
  if (enter(xml, "V4")) {
    if (xml.FindElem("IP")) {
      const char* ip = xml.GetData();
      if (std::strcmp(ip, "0.0.0.0") != 0) {
        addrListReady = 1;
        netinternal::setField(entry.ipv4, ip);
      }
    }
    if (xml.FindElem("ExternalIP")) {
      const char* text = xml.GetData();
      if (std::strcmp(text, "0.0.0.0") != 0) netinternal::setField(entry.externalIP, text);
    }
    if (xml.FindElem("DeviceExternal")) {
      const char* text = xml.GetData();
      if (std::strcmp(text, "0.0.0.0") != 0) netinternal::setField(entry.deviceExternal, text);
    }
    xml.OutOfElem();
  }
  if (xml.FindElem("Protocol")) entry.protocolMask |= netinternal::protocolMaskFromText(xml.GetData());
  xml.OutOfElem();
}

}  // namespace

CNetworkCfg::CNetworkCfg()
    : addrCount(0),
      addrList(),
      httpPort(0),
      httpsPort(0),
      httpsEnable(0),
      extHttpPort(0),
      extHttpsPort(0),
      rtspPort(0),
      extRtspPort(0),
      pssUploadPort(0),
      pssDownloadPort(0),
      extPssUploadPort(0),
      extPssDownloadPort(0),
      platformPortMapping(0),
      devicePortMapping(0),
      lumenRegPort(0),
      extLumenRegPort(0),
      lumenAlarmPort(0),
      extLumenAlarmPort(0),
      lumenStreamMinPort(0),
      lumenStreamMaxPort(0),
      extLumenStreamMinPort(0),
      extLumenStreamMaxPort(0),
      lumenV5RegPort(0),
      extLumenV5RegPort(0),
      lumenV5AlarmPort(0),
      extLumenV5AlarmPort(0),
      lumenV5VideoAlarmPort(0),
      extLumenV5VideoAlarmPort(0),
      lumenV5StreamPort(0),
      extLumenV5StreamPort(0),
      lumenV5PlayBackPort(0),
      extLumenV5PlayBackPort(0),
      lumenV5TwowayAudioPort(0),
      extLumenV5TwowayAudioPort(0),
      lumenV5AcsAlarmPort(0),
      extLumenV5AcsAlarmPort(0),
      keepAliveSeconds(0),
      keepAliveCount(0),
      addrListReady(0),
      storageMutex(),
      storageClient(-1),
      wisp5AlarmPortType(WISP5_ALARM_PORT_VIDEO) {
  OSL_Mutex_Create(&storageMutex);
}

CNetworkCfg::~CNetworkCfg() {
  if (storageClient != -1) releaseStorageClient();
  OSL_Mutex_Destroy(&storageMutex);
}

bool CNetworkCfg::start() {
  if (!loadFile()) return false;
  return updateLocalIP();
}

// The steps of loadFile, each on the cursor inside "Config"/"Network" and
// leaving it there.
struct CNetworkCfg::Loader {
  // "AddrList": every "Addr" child once, in document order, whatever else
  // the list holds, at most 16; the count is the number of entries read.
  static void readAddrList(CNetworkCfg& cfg, CXmlBase& xml) {
    if (!xml.FindElem("AddrList")) return;
    size_t count = 0;
    if (xml.IntoElem()) {
      for (bool more = xml.FindElem("Addr"); more; more = xml.FindNextElem("Addr")) {
        if (count == kMaxAddrEntries) {
          OXLOG(4, "[%s(%d)] AddrList holds more than %d entries, the rest are ignored.",
                static_cast<int>(kMaxAddrEntries));
          break;
        }
        _NIC_INFO_V4& entry = cfg.addrList[count];
        readAddr(xml, entry, cfg.addrListReady);
        OXLOG(2, "[%s(%d)] [IP=%s,ExternalIP=%s,DeviceExternal=%s,Protocol=%d]read from Config.xml",
              fieldText(entry.ipv4).c_str(), fieldText(entry.externalIP).c_str(),
              fieldText(entry.deviceExternal).c_str(), static_cast<int>(entry.protocolMask));
        ++count;
      }
      xml.OutOfElem();
    }
    cfg.addrCount = static_cast<uint8_t>(count);
  }

  // Every port and number of the field table that is present; absent ones
  // keep their value. The switches and the alarm port type have rules of
  // their own (readPortMapping).
  static void readNumbers(CNetworkCfg& cfg, CXmlBase& xml) {
    for (int id = 0; id < Field::kCount; ++id) {
      const Field& f = Field::get(static_cast<Field::Id>(id));
      if (f.kind != Field::kPort && f.kind != Field::kInt) continue;
      int depth = 0;
      bool inside = true;
      for (const char* const* p = f.path; inside && p < f.path + 2 && *p; ++p) {
        inside = enter(xml, *p);
        if (inside) ++depth;
      }
      if (inside && xml.FindElem(f.leaf)) {
        const int32_t n = OSL_Atoi32(xml.GetData());
        if (f.kind == Field::kPort) {
          cfg.*f.port = static_cast<uint16_t>(static_cast<uint32_t>(n));
        } else {
          cfg.*f.value = n;
        }
      }
      while (depth-- > 0) xml.OutOfElem();
    }
  }

  // "PortMapping": the two switches (from the legacy "enable" of older
  // files, which leaves the document here, or from the current elements),
  // and the alarm port type. Runs after readNumbers: the legacy rule looks
  // at the external web ports.
  static void readPortMapping(CNetworkCfg& cfg, CXmlBase& xml) {
    const Field& device = Field::get(Field::kDeviceEnable);
    const Field& platform = Field::get(Field::kPlatformEnable);
    if (!enter(xml, device.path[0])) return;
    if (xml.FindElem("enable")) {
      if (std::strcmp(xml.GetData(), "true") == 0) {
        cfg.devicePortMapping = 1;
        if (cfg.extHttpPort != 0 || cfg.extHttpsPort != 0 || cfg.extRtspPort != 0) cfg.platformPortMapping = 1;
      }
      do {
        xml.RemoveNode();
      } while (xml.FindElem("enable"));
      if (xml.FindElem(device.leaf)) xml.ModifyData(device.leaf, device.text(cfg.devicePortMapping).c_str());
      if (xml.FindElem(platform.leaf)) {
        xml.ModifyData(platform.leaf, platform.text(cfg.platformPortMapping).c_str());
      }
    } else {
      if (xml.FindElem(device.leaf) && std::strcmp(xml.GetData(), "true") == 0) cfg.devicePortMapping = 1;
      if (xml.FindElem(platform.leaf) && std::strcmp(xml.GetData(), "true") == 0) cfg.platformPortMapping = 1;
    }
    // Whatever the element holds, loading yields the video-alarm port: the
    // access-control type exists in memory only after setWISP5AlarmPortType.
    if (xml.FindElem(Field::get(Field::kAlarmPortType).leaf)) cfg.wisp5AlarmPortType = WISP5_ALARM_PORT_VIDEO;
    xml.OutOfElem();
  }

  // Without "HeartbeatParam" a device is kept alive with 30 seconds and 3
  // misses; a present but empty one gives 0 and 0.
  static void defaultHeartbeat(CNetworkCfg& cfg, CXmlBase& xml) {
    if (xml.FindElem(Field::get(Field::kKeepAliveSeconds).path[0])) return;
    cfg.keepAliveSeconds = 30;
    cfg.keepAliveCount = 3;
  }
};

// The document is always written back, also when nothing changed: this is
// how the legacy "PortMapping/enable" leaves the file.
bool CNetworkCfg::loadFile() {
  try {
    ConfigFileTxn txn(getConfigFilePath());
    CXmlBase xml;
    if (readConfigFile(xml) != 1) return false;
    if (enter(xml, "Config")) {
      if (enter(xml, "Network")) {
        Loader::readAddrList(*this, xml);
        Loader::readNumbers(*this, xml);
        Loader::readPortMapping(*this, xml);
        Loader::defaultHeartbeat(*this, xml);
        xml.OutOfElem();
      }
      xml.OutOfElem();
    }
    if (writeConfigFile(xml) != 1) {
      OXLOG(5, "[%s(%d)] WriteToFile config file is fail.");
      return false;
    }
    return true;
  } catch (...) {
    return false;
  }
}

bool CNetworkCfg::reloadFile() {
  try {
    CXmlBase xml;
    if (readConfigFile(xml) != 1) return false;
    // The steps of loadFile run on a scratch object that starts from the
    // values in force (absent elements keep them) and from switches off (as
    // at a first load); only then is every value published, each atomically.
    CNetworkCfg fresh;
    for (int id = 0; id < Field::kCount; ++id) {
      const Field& f = Field::get(static_cast<Field::Id>(id));
      if (f.kind == Field::kPort || f.kind == Field::kInt) f.store(fresh, f.read(*this));
    }
    if (enter(xml, "Config")) {
      if (enter(xml, "Network")) {
        Loader::readNumbers(fresh, xml);
        Loader::readPortMapping(fresh, xml);
        Loader::defaultHeartbeat(fresh, xml);
      }
    }
    for (int id = 0; id < Field::kCount; ++id) {
      const Field& f = Field::get(static_cast<Field::Id>(id));
      if (f.kind != Field::kType) f.store(*this, f.read(fresh));
    }
    return true;
  } catch (...) {
    return false;
  }
}

bool CNetworkCfg::reloadAddrList() {
  try {
    CXmlBase xml;
    if (readConfigFile(xml) != 1) return false;
    CNetworkCfg fresh;
    if (enter(xml, "Config") && enter(xml, "Network")) Loader::readAddrList(fresh, xml);
    // A list without a usable address says nothing about this machine.
    if (fresh.addrListReady == 0) return false;
    const size_t count = std::min<size_t>(fresh.addrCount, kMaxAddrEntries);
    std::unique_lock<OxBase::CRWLock> lock(netinternal::addrTableLock());
    // The file does not hold the adapters' names: an address keeps its own.
    for (size_t i = 0; i < count; ++i) {
      const size_t known = std::min<size_t>(addrCount, kMaxAddrEntries);
      for (size_t j = 0; j < known; ++j) {
        if (std::memcmp(addrList[j].ipv4, fresh.addrList[i].ipv4, sizeof addrList[j].ipv4) == 0) {
          std::memcpy(fresh.addrList[i].description, addrList[j].description, sizeof addrList[j].description);
          break;
        }
      }
    }
    std::memcpy(addrList, fresh.addrList, sizeof addrList);
    addrCount = static_cast<uint8_t>(count);
    return true;
  } catch (...) {
    return false;
  }
}

// ---- getters ------------------------------------------------------------------

uint16_t CNetworkCfg::getHttpPort() const { return loadRelaxed(httpPort); }
uint16_t CNetworkCfg::getHttpsPort() const { return loadRelaxed(httpsPort); }
int CNetworkCfg::getHttpsEnable() const { return loadRelaxed(httpsEnable); }
uint16_t CNetworkCfg::getRtspPort() const { return loadRelaxed(rtspPort); }
uint16_t CNetworkCfg::getPssUploadPort() const { return loadRelaxed(pssUploadPort); }
uint16_t CNetworkCfg::getPssDownloadPort() const { return loadRelaxed(pssDownloadPort); }
uint16_t CNetworkCfg::getLumenRegPort() const { return loadRelaxed(lumenRegPort); }
uint16_t CNetworkCfg::getLumenAlarmPort() const { return loadRelaxed(lumenAlarmPort); }
void CNetworkCfg::getLumenStreamPort(uint16_t& minPort, uint16_t& maxPort) const {
  minPort = loadRelaxed(lumenStreamMinPort);
  maxPort = loadRelaxed(lumenStreamMaxPort);
}
uint16_t CNetworkCfg::getLumenV5RegPort() const { return loadRelaxed(lumenV5RegPort); }
uint16_t CNetworkCfg::getLumenV5AlarmPort() const { return loadRelaxed(lumenV5AlarmPort); }
uint16_t CNetworkCfg::getLumenV5VideoAlarmPort() const { return loadRelaxed(lumenV5VideoAlarmPort); }
uint16_t CNetworkCfg::getLumenV5AcsAlarmPort() const { return loadRelaxed(lumenV5AcsAlarmPort); }
uint16_t CNetworkCfg::getLumenV5StreamPort() const { return loadRelaxed(lumenV5StreamPort); }
uint16_t CNetworkCfg::getLumenV5PlayBackPort() const { return loadRelaxed(lumenV5PlayBackPort); }
uint16_t CNetworkCfg::getLumenV5TwowayAudioPort() const { return loadRelaxed(lumenV5TwowayAudioPort); }

uint16_t CNetworkCfg::getExtHttpPort() const { return loadRelaxed(extHttpPort); }
uint16_t CNetworkCfg::getExtHttpsPort() const { return loadRelaxed(extHttpsPort); }
uint16_t CNetworkCfg::getExtRtspPort() const { return loadRelaxed(extRtspPort); }
uint16_t CNetworkCfg::getExtPssUploadPort() const { return loadRelaxed(extPssUploadPort); }
uint16_t CNetworkCfg::getExtPssDownloadPort() const { return loadRelaxed(extPssDownloadPort); }
uint16_t CNetworkCfg::getExtLumenRegPort() const { return loadRelaxed(extLumenRegPort); }
uint16_t CNetworkCfg::getExtLumenAlarmPort() const { return loadRelaxed(extLumenAlarmPort); }
void CNetworkCfg::getExtLumenStreamPort(uint16_t& minPort, uint16_t& maxPort) const {
  minPort = loadRelaxed(extLumenStreamMinPort);
  maxPort = loadRelaxed(extLumenStreamMaxPort);
}
uint16_t CNetworkCfg::getExtLumenV5RegPort() const { return loadRelaxed(extLumenV5RegPort); }
uint16_t CNetworkCfg::getExtLumenV5AlarmPort() const { return loadRelaxed(extLumenV5AlarmPort); }
uint16_t CNetworkCfg::getExtLumenV5VideoAlarmPort() const {
  return loadRelaxed(extLumenV5VideoAlarmPort);
}
uint16_t CNetworkCfg::getExtLumenV5AcsAlarmPort() const { return loadRelaxed(extLumenV5AcsAlarmPort); }
uint16_t CNetworkCfg::getExtLumenV5StreamPort() const { return loadRelaxed(extLumenV5StreamPort); }
uint16_t CNetworkCfg::getExtLumenV5PlayBackPort() const { return loadRelaxed(extLumenV5PlayBackPort); }
uint16_t CNetworkCfg::getExtLumenV5TwowayAudioPort() const {
  return loadRelaxed(extLumenV5TwowayAudioPort);
}

bool CNetworkCfg::isPlatformPortMapping() const { return loadRelaxed(platformPortMapping) != 0; }
bool CNetworkCfg::isDevicePortMapping() const { return loadRelaxed(devicePortMapping) != 0; }

bool CNetworkCfg::isHttpMapping() const {
  try {
    return isPlatformPortMapping() && getExtHttpPort() != 0 && getGatewayOuterIP() != "0.0.0.0";
  } catch (...) {
    return false;
  }
}

bool CNetworkCfg::isRtspMapping() const {
  try {
    return isPlatformPortMapping() && getExtRtspPort() != 0 && getGatewayOuterIP() != "0.0.0.0";
  } catch (...) {
    return false;
  }
}

WISP5AlarmPortType CNetworkCfg::getWISP5AlarmPortType() const { return loadRelaxed(wisp5AlarmPortType); }

uint16_t CNetworkCfg::getWISP5AlarmPort() const {
  switch (getWISP5AlarmPortType()) {
    case WISP5_ALARM_PORT_VIDEO:
      return getLumenV5VideoAlarmPort();
    case WISP5_ALARM_PORT_ACS:
      return getLumenV5AcsAlarmPort();
  }
  OXLOG(4, "[%s(%d)] wisp5 Alarm port type unknown.");
  return getLumenV5VideoAlarmPort();
}

uint16_t CNetworkCfg::getExtWISP5AlarmPort() const {
  switch (getWISP5AlarmPortType()) {
    case WISP5_ALARM_PORT_VIDEO:
      return getExtLumenV5VideoAlarmPort();
    case WISP5_ALARM_PORT_ACS:
      return getExtLumenV5AcsAlarmPort();
  }
  OXLOG(4, "[%s(%d)] wisp5 Alarm port type unknown.");
  return getExtLumenV5VideoAlarmPort();
}

void CNetworkCfg::getDevKeepAliveParam(uint16_t& seconds, uint16_t& count) const {
  seconds = loadRelaxed(keepAliveSeconds);
  count = loadRelaxed(keepAliveCount);
}

}  // namespace OxConfigMgr
