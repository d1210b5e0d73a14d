#include <oxconfigmgr/OxConvertCodeCfg.h>

#include <cstring>
#include <string>

#include "arc/arc_internal.h"
#include "frame/backup_merge.h"
#include "frame/config_store.h"
#include "frame/config_txn.h"
#include "platform/osl.h"
#include "platform/xlog.h"
#include "platform/xml_base.h"

namespace OxConfigMgr {

using OxBase::CXmlBase;

namespace {

const char* sectionName(ProtocolType type) {
  switch (type) {
    case PROTOCOL_TYPE_SG:
      return "NyxCodeToSGConfig";
    case PROTOCOL_TYPE_POLL:
      return "PollEventToCIDConfig";
  }
  return nullptr;
}

// Merges every "Code" of "<section>/CodeList" into `table`; a row replaces
// the row of the same code, so a later duplicate wins.
void loadSection(CXmlBase& xml, const char* section, bool poll, std::map<std::string, tagConvertSGInfo>& table) {
  if (!xml.FindElem(section) || !xml.IntoElem()) return;
  if (xml.FindElem("CodeList") && xml.IntoElem()) {
    for (bool more = xml.FindElem("Code"); more; more = xml.FindNextElem("Code")) {
      table[xml.GetAttributeValue("NyxCode")] = readCodeRow(xml, !poll, poll);
    }
    xml.OutOfElem();
  }
  xml.OutOfElem();
}

}  // namespace

tagConvertSGInfo readCodeRow(CXmlBase& xml, bool withSIA, bool withEnabled) {
  tagConvertSGInfo row;
  if (!xml.IntoElem()) return row;
  if (xml.FindElem("EventDesc")) setField(row.eventDesc, xml.GetData());
  if (xml.FindElem("EventDescCN")) setField(row.eventDescCN, xml.GetData());
  if (xml.FindElem("CID")) setField(row.cid, xml.GetData());
  if (withSIA && xml.FindElem("SIA")) setField(row.sia, xml.GetData());
  if (withEnabled && xml.FindElem("Enabled")) row.enabled = std::strcmp(xml.GetData(), "true") == 0 ? 1 : 0;
  xml.OutOfElem();
  return row;
}

bool appendCodeRow(CXmlBase& xml, const std::string& key, const tagConvertSGInfo& row, ProtocolType type) {
  if (!xml.AddNode("Code")) return false;
  bool ok = true;
  if (row.eventDesc[0]) ok = ok && xml.AddNode("EventDesc", row.eventDesc);
  if (row.eventDescCN[0]) ok = ok && xml.AddNode("EventDescCN", row.eventDescCN);
  if (row.cid[0]) ok = ok && xml.AddNode("CID", row.cid);
  if (type == PROTOCOL_TYPE_SG && row.sia[0]) ok = ok && xml.AddNode("SIA", row.sia);
  if (type == PROTOCOL_TYPE_POLL) ok = ok && xml.AddNode("Enabled", row.enabled ? "true" : "false");
  ok = ok && xml.SetAttribute("NyxCode", key.c_str());
  xml.OutOfElem();
  return ok;
}

CConvertCodeCfg::CConvertCodeCfg() = default;

CConvertCodeCfg::~CConvertCodeCfg() = default;

int CConvertCodeCfg::convertCode(EventFormat format, const std::string& inputCode, std::string& outputCode) try {
  switch (format) {
    case EVENT_FORMAT_CID: {
      auto it = sgCodeMap.find(inputCode);
      if (it != sgCodeMap.end()) {
        // A row without a Contact ID passes the code on as it is, without
        // the E/R fallback of unknown codes.
        outputCode = it->second.cid[0] ? std::string(it->second.cid) : inputCode;
        return 1;
      }
      if (inputCode.empty()) {
        OXLOG(5, "[%s(%d)] inputCode is NULL");
        return 0;
      }
      // A Contact ID event (1xxx new, 3xxx restore) without a row.
      std::string out = inputCode;
      if (out[0] == '1')
        out.replace(0, 1, "E");
      else if (out[0] == '3')
        out.replace(0, 1, "R");
      outputCode = out;
      return 1;
    }
    case EVENT_FORMAT_SIA: {
      auto it = sgCodeMap.find(inputCode);
      outputCode = it != sgCodeMap.end() && it->second.sia[0] ? std::string(it->second.sia) : inputCode;
      return 1;
    }
    case EVENT_FORMAT_POLL_CID: {
      auto it = pollCodeMap.find(inputCode);
      if (it == pollCodeMap.end()) {
        OXLOG(4, "[%s(%d)] inputCode is nonrecognition![%s]", inputCode.c_str());
        return 0;
      }
      if (!it->second.cid[0]) return 0;
      if (!it->second.enabled) {
        OXLOG(3, "[%s(%d)] [%s]EventCode is disable.", it->second.cid);
        return 0;
      }
      outputCode = it->second.cid;
      return 1;
    }
  }
  OXLOG(5, "[%s(%d)] EventFormat Error!");
  return 0;
} catch (...) {
  return 0;
}

bool CConvertCodeCfg::loadFile() try {
  copyBackupConfig();
  const std::string path = getConvertCodeCfgFilePath();
  CXmlBase xml;
  if (xml.LoadFile(path) != 1) {
    OXLOG(5, "[%s(%d)] config file is not exist path=%s", path.c_str());
    return false;
  }
  if (!xml.FindElem("ConvertCodeConfig")) return true;
  if (xml.IntoElem()) {
    loadSection(xml, "NyxCodeToSGConfig", false, sgCodeMap);
    loadSection(xml, "PollEventToCIDConfig", true, pollCodeMap);
  }
  return true;
} catch (...) {
  return false;
}

bool CConvertCodeCfg::setFile(ProtocolType type) try {
  const std::string path = getConvertCodeCfgFilePath();
  ConfigFileTxn txn(path);
  CXmlBase xml;
  if (xml.LoadFile(path) != 1) {
    OXLOG(5, "[%s(%d)] ConvertCodeConfig.xml file is not exist");
    return false;
  }
  if (!xml.FindElem("ConvertCodeConfig")) {
    OXLOG(5, "[%s(%d)] this Protocol is not support!");
    return false;
  }
  const char* section = sectionName(type);
  if (!section) {
    OXLOG(5, "[%s(%d)] this Protocol is not support!");
    return false;
  }
  if (!xml.IntoElem() || !xml.FindElem(section)) {
    OXLOG(5, "[%s(%d)] ConvertCodeConfig.xml format error!");
    return false;
  }
  const auto& table = type == PROTOCOL_TYPE_SG ? sgCodeMap : pollCodeMap;
  xml.RemoveNode("CodeList");
  if (!xml.AddNode("CodeList")) return false;
  for (const auto& row : table) {
    if (!appendCodeRow(xml, row.first, row.second, type)) return false;
  }
  // The new rows are in memory already; the caller learns whether they
  // reached the file.
  return xml.WriteToFile(path) == 1;
} catch (...) {
  return false;
}

int CConvertCodeCfg::getSGEventCodeMap(ProtocolType type, std::map<std::string, tagConvertSGInfo>& out) try {
  if (type == PROTOCOL_TYPE_SG)
    out = sgCodeMap;
  else if (type == PROTOCOL_TYPE_POLL)
    out = pollCodeMap;
  return 0;
} catch (...) {
  return 0;
}

int CConvertCodeCfg::getSGEventCodeList(std::vector<tagEventCode>& list, int& count, int& total,
                                        tagEventCodeQueryReq* req) try {
  if (!req || req->position < 0 || req->maxResults <= 0) return 1;
  const auto& table = req->isPollEvent ? pollCodeMap : sgCodeMap;
  list.reserve(list.size() + table.size());
  for (const auto& row : table) {
    tagEventCode code;
    setField(code.code, row.first.c_str());
    code.info = row.second;
    list.push_back(code);
  }
  total = static_cast<int>(list.size());
  if (req->position >= total) {
    count = 0;
    list.clear();
    return 0;
  }
  list.erase(list.begin(), list.begin() + req->position);
  if (list.size() > static_cast<size_t>(req->maxResults)) list.resize(static_cast<size_t>(req->maxResults));
  count = static_cast<int>(list.size());
  return 0;
} catch (...) {
  return 1;
}

int CConvertCodeCfg::updateSGEventCode(ProtocolType type, const std::map<std::string, tagConvertSGInfo>& table) try {
  std::map<std::string, tagConvertSGInfo>* target =
      type == PROTOCOL_TYPE_SG ? &sgCodeMap : type == PROTOCOL_TYPE_POLL ? &pollCodeMap : nullptr;
  if (target) {
    *target = table;
    // Rows are read as strings from here on: keep their texts within the
    // fields.
    for (auto& row : *target) {
      terminateField(row.second.cid);
      terminateField(row.second.sia);
      terminateField(row.second.eventDesc);
      terminateField(row.second.eventDescCN);
    }
  }
  if (!setFile(type)) {
    OXLOG(5, "[%s(%d)] addCodeToFile failed!");
    return 9;
  }
  return 0;
} catch (...) {
  return 9;
}

void CConvertCodeCfg::copyBackupConfig() try {
  mergeBackupFile(getConvertCodeCfgFilePath(), OxBase::FileMode::kKeep, [](CXmlBase& current, CXmlBase& backup) {
    upgradeBackupConvertCodeConfig(backup);
    backup.SetRoot();
    current.SetRoot();
    copyCodeXMLRecursive(current, backup);
  });
} catch (...) {
}

}  // namespace OxConfigMgr
