// CNetworkCfg: construction, loading of the "Network" section and getters.
#include <oxconfigmgr/OxNetworkCfg.h>

#include <cstring>
#include <mutex>

#include "frame/config_store.h"
#include "frame/config_txn.h"
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

// Numbers are decimal text without range check, kept in 16 bits.
void readPort(CXmlBase& xml, const char* name, uint16_t& port) {
  if (xml.FindElem(name)) {
    port = static_cast<uint16_t>(static_cast<uint32_t>(OSL_Atoi32(xml.GetData())));
  }
}

void readInt(CXmlBase& xml, const char* name, int32_t& value) {
  if (xml.FindElem(name)) value = OSL_Atoi32(xml.GetData());
}

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

bool CNetworkCfg::loadFile() {
  try {
    ConfigFileTxn txn(getConfigFilePath());
    CXmlBase xml;
    if (readConfigFile(xml) != 1) return false;

    if (enter(xml, "Config")) {
      if (enter(xml, "Network")) {
        if (xml.FindElem("AddrList")) {
          // Every "Addr" child once, in document order, whatever else the
          // list holds; the count is the number of entries read.
          size_t count = 0;
          if (xml.IntoElem()) {
            for (bool more = xml.FindElem("Addr"); more; more = xml.FindNextElem("Addr")) {
              if (count == kMaxAddrEntries) {
                OXLOG(4, "[%s(%d)] AddrList holds more than %d entries, the rest are ignored.",
                      static_cast<int>(kMaxAddrEntries));
                break;
              }
              _NIC_INFO_V4& entry = addrList[count];
              readAddr(xml, entry, addrListReady);
              OXLOG(2, "[%s(%d)] [IP=%s,ExternalIP=%s,DeviceExternal=%s,Protocol=%d]read from Config.xml",
                    fieldText(entry.ipv4).c_str(), fieldText(entry.externalIP).c_str(),
                    fieldText(entry.deviceExternal).c_str(), static_cast<int>(entry.protocolMask));
              ++count;
            }
            xml.OutOfElem();
          }
          addrCount = static_cast<uint8_t>(count);
        }

        if (enter(xml, "HTTP")) {
          readPort(xml, "Port", httpPort);
          readPort(xml, "ExternalPort", extHttpPort);
          xml.OutOfElem();
        }
        if (enter(xml, "HTTPS")) {
          readPort(xml, "Port", httpsPort);
          readInt(xml, "Enable", httpsEnable);
          readPort(xml, "ExternalPort", extHttpsPort);
          xml.OutOfElem();
        }
        if (enter(xml, "RTSP")) {
          readPort(xml, "Port", rtspPort);
          readPort(xml, "ExternalPort", extRtspPort);
          xml.OutOfElem();
        }
        if (enter(xml, "PSS")) {
          if (enter(xml, "Upload")) {
            readPort(xml, "Port", pssUploadPort);
            readPort(xml, "ExternalPort", extPssUploadPort);
            xml.OutOfElem();
          }
          if (enter(xml, "Download")) {
            readPort(xml, "Port", pssDownloadPort);
            readPort(xml, "ExternalPort", extPssDownloadPort);
            xml.OutOfElem();
          }
          xml.OutOfElem();
        }

        if (enter(xml, "PortMapping")) {
          if (xml.FindElem("enable")) {
            // Older files had one switch for both directions; it becomes the
            // two current switches and leaves the file with this load.
            if (std::strcmp(xml.GetData(), "true") == 0) {
              devicePortMapping = 1;
              if (extHttpPort != 0 || extHttpsPort != 0 || extRtspPort != 0) platformPortMapping = 1;
            }
            do {
              xml.RemoveNode();
            } while (xml.FindElem("enable"));
            if (xml.FindElem("DeviceEnable")) {
              xml.ModifyData("DeviceEnable", devicePortMapping ? "true" : "false");
            }
            if (xml.FindElem("PlatformEnable")) {
              xml.ModifyData("PlatformEnable", platformPortMapping ? "true" : "false");
            }
          } else {
            if (xml.FindElem("DeviceEnable") && std::strcmp(xml.GetData(), "true") == 0) {
              devicePortMapping = 1;
            }
            if (xml.FindElem("PlatformEnable") && std::strcmp(xml.GetData(), "true") == 0) {
              platformPortMapping = 1;
            }
          }

          if (xml.FindElem("AlarmPortType")) {
            // Whatever the element holds, loading yields the video-alarm
            // port: the access-control type exists in memory only after
            // setWISP5AlarmPortType.
            wisp5AlarmPortType = WISP5_ALARM_PORT_VIDEO;
          }

          struct PortPair {
            const char* name;
            uint16_t CNetworkCfg::*port;
            uint16_t CNetworkCfg::*ext;
          };
          static const PortPair kPairs[] = {
              {"LumenReg", &CNetworkCfg::lumenRegPort, &CNetworkCfg::extLumenRegPort},
              {"LumenAlarm", &CNetworkCfg::lumenAlarmPort, &CNetworkCfg::extLumenAlarmPort},
              {"LumenV5Reg", &CNetworkCfg::lumenV5RegPort, &CNetworkCfg::extLumenV5RegPort},
              {"LumenV5Alarm", &CNetworkCfg::lumenV5AlarmPort, &CNetworkCfg::extLumenV5AlarmPort},
              {"LumenV5VideoAlarm", &CNetworkCfg::lumenV5VideoAlarmPort,
               &CNetworkCfg::extLumenV5VideoAlarmPort},
              {"LumenV5Stream", &CNetworkCfg::lumenV5StreamPort, &CNetworkCfg::extLumenV5StreamPort},
              {"LumenV5PlayBack", &CNetworkCfg::lumenV5PlayBackPort,
               &CNetworkCfg::extLumenV5PlayBackPort},
              {"LumenV5TwoWayAudio", &CNetworkCfg::lumenV5TwowayAudioPort,
               &CNetworkCfg::extLumenV5TwowayAudioPort},
              {"LumenV5AcsAlarm", &CNetworkCfg::lumenV5AcsAlarmPort,
               &CNetworkCfg::extLumenV5AcsAlarmPort},
          };
          for (const PortPair& pair : kPairs) {
            if (enter(xml, pair.name)) {
              readPort(xml, "Port", this->*pair.port);
              readPort(xml, "ExternalPort", this->*pair.ext);
              xml.OutOfElem();
            }
          }
          if (enter(xml, "LumenStream")) {
            readPort(xml, "MinPort", lumenStreamMinPort);
            readPort(xml, "MaxPort", lumenStreamMaxPort);
            readPort(xml, "ExternalMinPort", extLumenStreamMinPort);
            readPort(xml, "ExternalMaxPort", extLumenStreamMaxPort);
            xml.OutOfElem();
          }
          xml.OutOfElem();
        }

        if (xml.FindElem("HeartbeatParam")) {
          if (xml.IntoElem()) {
            readPort(xml, "KeepAliveSeconds", keepAliveSeconds);
            readPort(xml, "KeepAliveCount", keepAliveCount);
            xml.OutOfElem();
          }
        } else {
          keepAliveSeconds = 30;
          keepAliveCount = 3;
        }
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
