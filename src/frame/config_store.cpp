#include "frame/config_store.h"

#include <mutex>
#include <shared_mutex>

#include "platform/oxbase.h"
#include "platform/xlog.h"

namespace OxConfigMgr {

OxBase::CRWLock m_gConfigFileLock;

std::string getConfigFilePath() { return OX_BASE_GetCurDir() + "Config.xml"; }
std::string getPrivateConfigFilePath() { return OX_BASE_GetCurDir() + "PrivateConfig.xml"; }
std::string getARCConfigFilePath() { return OX_BASE_GetCurDir() + "ARCConfig.xml"; }
std::string getConvertCodeCfgFilePath() { return OX_BASE_GetCurDir() + "ConvertCodeConfig.xml"; }
std::string getQAPIConfigFilePath() { return OX_BASE_GetCurDir() + "QAPIConfig.xml"; }

namespace {

// Runs `op` on the path of "Config.xml" holding m_gConfigFileLock as `Lock`
// has it; a failure is logged under `function` with the text that reads and
// writes share.
template <class Lock, class Op>
int underConfigLock(const char* function, Op op) {
  const std::string path = getConfigFilePath();
  int rc;
  {
    Lock lock(m_gConfigFileLock);
    rc = op(path);
  }
  if (rc != 1) {
    xlog_format(5, "OXW", "[%s(%d)] config file is not exist", function, __LINE__);
    return 0;
  }
  return 1;
}

}  // namespace

int readConfigFile(OxBase::CXmlBase& xml) {
  return underConfigLock<std::shared_lock<OxBase::CRWLock>>(
      "readConfigFile", [&xml](const std::string& path) { return xml.LoadFile(path); });
}

int writeConfigFile(const OxBase::CXmlBase& xml) {
  return underConfigLock<std::unique_lock<OxBase::CRWLock>>(
      "writeConfigFile", [&xml](const std::string& path) { return xml.WriteToFile(path); });
}

namespace {

// One level of the merge; siblings are walked in a loop and only children
// recurse, so the depth of recursion is the depth of the document.
void mergeLevel(OxBase::CXmlBase& dest, OxBase::CXmlBase& src, const char* excluded, int depth) {
  do {
    const std::string name = dest.GetNodeName();
    if (name.empty() || !src.FindElem(name.c_str())) continue;
    if (!dest.IntoElem()) {
      // A leaf: its text, found by name on the level, is replaced, never
      // added; ModifyData refuses where there is nothing to replace.
      if (!excluded || name != excluded) dest.ModifyData(name.c_str(), src.GetData());
      continue;
    }
    if (depth + 1 < kMergeDepthLimit && src.IntoElem()) {
      mergeLevel(dest, src, excluded, depth + 1);
      src.OutOfElem();
    }
    dest.OutOfElem();
  } while (dest.NextSibElem());
}

}  // namespace

void copyXMLRecursive(OxBase::CXmlBase& dest, OxBase::CXmlBase& src, const char* excluded) {
  mergeLevel(dest, src, excluded, 0);
}

bool xmlWalk(OxBase::CXmlBase& xml, std::initializer_list<const char*> path) {
  if (!xml.SetRoot()) return false;
  bool first = true;
  for (const char* name : path) {
    if (!first && !xml.IntoElem()) return false;
    if (!xml.FindElem(name)) return false;
    first = false;
  }
  return true;
}

bool xmlChildText(OxBase::CXmlBase& xml, const char* name, std::string* text) {
  if (!xml.IntoElem()) return false;
  bool found = xml.FindElem(name);
  if (found && text) *text = xml.GetData();
  xml.OutOfElem();
  return found;
}

bool xmlSetChildText(OxBase::CXmlBase& xml, const char* name, const char* text) {
  if (xml.IntoElem()) {
    bool found = xml.FindElem(name);
    bool ok = found && xml.ModifyData(name, text) == 1;
    xml.OutOfElem();
    if (found) return ok;
  }
  return xml.AddNode(name, text);
}

}  // namespace OxConfigMgr
