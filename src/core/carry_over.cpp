// Carry-over of the previous installation's "Config_Backup.xml" into the new
// "Config.xml" after a software upgrade: the old document is first brought up
// to the 1.6 layout in memory, step by step, then merged into the new one.
#include <cstring>
#include <string>

#include "frame/config_store.h"
#include "frame/backup_merge.h"
#include "core/instance_mgr.h"
#include "platform/osl.h"
#include "platform/oxbase.h"
#include "platform/xlog.h"

namespace OxConfigMgr {

using OxBase::CXmlBase;

namespace {

bool contains(const std::string& text, const char* part) {
  return text.find(part) != std::string::npos;
}

// Copies "DeviceExternal" beside every "ExternalIP" of the address list, inside
// "V4", where the network section reads it (older releases had one outside
// address for platform and devices alike).
void addDeviceExternal(CXmlBase& old) {
  if (!xmlWalk(old, {"Config", "Network", "AddrList"}) || !old.IntoElem()) return;
  for (bool more = old.FindElem("Addr"); more; more = old.FindNextElem("Addr")) {
    if (!old.IntoElem()) continue;
    if (old.FindElem("V4")) {
      std::string external;
      if (xmlChildText(old, "ExternalIP", &external)) xmlSetChildText(old, "DeviceExternal", external.c_str());
    }
    old.OutOfElem();
  }
}

// Upgrades the old document in memory. Every step applies when the working
// version contains its text, then advances the version, so one start runs the
// whole chain. Returns the old model (read and removed by the V1.5 step).
std::string upgradeOldDocument(CXmlBase& old, std::string version) {
  std::string oldModel;
  if (contains(version, "V1.0")) {
    if (xmlWalk(old, {"Config", "Network"})) old.RemoveNode("HTTPS");
    version = "V1.1.0.0";
  }
  if (contains(version, "V1.1")) {
    if (xmlWalk(old, {"Config", "Network", "PortMapping"})) old.RemoveNode("LumenV5Stream");
    version = "V1.2.0.0";
  }
  if (contains(version, "V1.2")) version = "V1.3.0.0";
  if (contains(version, "V1.3")) {
    addDeviceExternal(old);
    if (xmlWalk(old, {"Config"})) old.RemoveNode("NATGateway");
    version = "V1.4.0.0";
  }
  if (contains(version, "V1.4")) version = "V1.5.0.0";
  if (contains(version, "V1.5")) {
    if (xmlWalk(old, {"Config", "BasicInfo"}) && xmlChildText(old, "Model", &oldModel)) {
      old.RemoveNode("Model");
    }
    const char* kind = oldModel == "ZX-AG2010/AC" ? "AC" : oldModel == "ZX-AG2010/V" ? "V" : nullptr;
    if (kind && old.SetRoot() && old.AddNode("DeviceMgmt")) old.AddNode("Checked", kind);
    version = "1.6.0.0";
  }
  return oldModel;
}

}  // namespace

void CInstanceMgr::copyBackupConfig() {
  mergeBackupFile(getConfigFilePath(), OxBase::FileMode::kKeep, [this](CXmlBase& newDoc, CXmlBase& oldDoc) {
    std::string version;
    if (xmlWalk(oldDoc, {"Config", "BasicInfo"})) xmlChildText(oldDoc, "SoftwareVersion", &version);
    m_backupVersion = version;

    const std::string oldModel = upgradeOldDocument(oldDoc, version);

    newDoc.SetRoot();
    oldDoc.SetRoot();
    copyXMLRecursive(newDoc, oldDoc, "SoftwareVersion");

    updateNetworkCfg(newDoc, oldDoc);
    updateNATGatewayCfg(newDoc, oldDoc);
    updateEventSubCfg(newDoc, oldModel);
    updateWispListenCfg(newDoc, oldDoc);
  });
}

void CInstanceMgr::updateNetworkCfg(CXmlBase& newDoc, CXmlBase& oldDoc) {
  if (!xmlWalk(newDoc, {"Config", "Network"}) || !xmlWalk(oldDoc, {"Config", "Network"})) return;

  // The merge carried the old first entry into the new first entry; the
  // other old entries are appended.
  if (xmlWalk(oldDoc, {"Config", "Network", "AddrList"}) &&
      xmlWalk(newDoc, {"Config", "Network", "AddrList"}) && oldDoc.IntoElem()) {
    bool more = oldDoc.FindElem("Addr");
    if (more) more = oldDoc.FindNextElem("Addr");
    for (; more; more = oldDoc.FindNextElem("Addr")) {
      std::string ip, externalIp, deviceExternal, protocol;
      bool hasIp = false, hasExternal = false, hasDevice = false;
      bool hasProtocol = xmlChildText(oldDoc, "Protocol", &protocol);
      if (oldDoc.IntoElem()) {
        if (oldDoc.FindElem("V4")) {
          hasIp = xmlChildText(oldDoc, "IP", &ip);
          hasExternal = xmlChildText(oldDoc, "ExternalIP", &externalIp);
          hasDevice = xmlChildText(oldDoc, "DeviceExternal", &deviceExternal);
        }
        oldDoc.OutOfElem();
      }
      // newDoc's current element is AddrList here.
      newDoc.AddNode("Addr");
      newDoc.AddNode("V4");
      if (hasIp) newDoc.AddNode("IP", ip.c_str());
      if (hasExternal) newDoc.AddNode("ExternalIP", externalIp.c_str());
      if (hasDevice) newDoc.AddNode("DeviceExternal", deviceExternal.c_str());
      newDoc.OutOfElem();
      if (hasProtocol) newDoc.AddNode("Protocol", protocol.c_str());
      newDoc.OutOfElem();
    }
  }

  std::string enable;
  if (xmlWalk(newDoc, {"Config", "Network", "PortMapping"}) &&
      xmlWalk(oldDoc, {"Config", "Network", "PortMapping"}) &&
      !xmlChildText(newDoc, "enable", nullptr) && xmlChildText(oldDoc, "enable", &enable)) {
    newDoc.AddNode("enable", enable.c_str());
  }
}

void CInstanceMgr::updateNATGatewayCfg(CXmlBase& newDoc, CXmlBase& oldDoc) {
  if (!xmlWalk(oldDoc, {"Config", "NATGateway", "PortRangeList"})) return;
  if (!xmlWalk(newDoc, {"Config", "NATGateway"})) return;
  newDoc.RemoveNode("PortRangeList");
  newDoc.AddNode("PortRangeList");
  if (!oldDoc.IntoElem()) return;
  for (bool more = oldDoc.FindElem("PortRange"); more; more = oldDoc.FindNextElem("PortRange")) {
    newDoc.AddNode("PortRange");
    std::string text;
    if (xmlChildText(oldDoc, "Protocol", &text)) {
      xlog_format(2, "OXW", "[%s(%d)] Parse %s Protocol", __FUNCTION__, __LINE__, text.c_str());
      newDoc.AddNode("Protocol", text.c_str());
    }
    if (xmlChildText(oldDoc, "min", &text)) newDoc.AddNode("min", text.c_str());
    if (xmlChildText(oldDoc, "max", &text)) newDoc.AddNode("max", text.c_str());
    newDoc.OutOfElem();
  }
}

void CInstanceMgr::updateEventSubCfg(CXmlBase& newDoc, const std::string& oldModel) {
  int value;
  if (oldModel == "ZX-AG2010/V") {
    value = 1;
  } else if (oldModel == "ZX-AG2010/AC") {
    value = 0;
  } else {
    xlog_format(3, "OXW", "[%s(%d)] [%s]no need to update", __FUNCTION__, __LINE__, oldModel.c_str());
    return;
  }
  if (xmlWalk(newDoc, {"Config", "EventSubCfg"})) {
    xlog_format(3, "OXW", "[%s(%d)] no need to update", __FUNCTION__, __LINE__);
  } else if (newDoc.SetRoot() && newDoc.AddNode("EventSubCfg")) {
    newDoc.AddNode("Enable", value ? "1" : "0");
  }
  xlog_format(2, "OXW", "[%s(%d)] [%s,%d] update subcfg succ", __FUNCTION__, __LINE__,
              oldModel.c_str(), value);
}

void CInstanceMgr::updateWispListenCfg(CXmlBase& newDoc, CXmlBase& oldDoc) {
  std::string enable;
  if (contains(m_backupVersion, "V1.6.0")) {
    // 1.6.0 had no Wisp listening switch: event subscription decided it.
    if (xmlWalk(oldDoc, {"Config", "EventSubCfg"})) xmlChildText(oldDoc, "Enable", &enable);
  } else if (contains(m_backupVersion, "V1.6.1")) {
    if (xmlWalk(oldDoc, {"Config", "WispListenCfg"})) xmlChildText(oldDoc, "Enable", &enable);
  } else {
    return;
  }
  if (enable != "1") return;
  if (xmlWalk(newDoc, {"Config", "WispListenCfg"})) {
    xmlSetChildText(newDoc, "Enable", "1");
  } else if (newDoc.SetRoot() && newDoc.AddNode("WispListenCfg")) {
    newDoc.AddNode("Enable", "1");
  }
}

}  // namespace OxConfigMgr
