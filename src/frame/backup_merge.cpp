#include "frame/backup_merge.h"

#include <mutex>

#include "frame/config_store.h"
#include "frame/config_txn.h"
#include "platform/osl.h"
#include "platform/xlog.h"

namespace OxConfigMgr {

using OxBase::CXmlBase;

std::string backupPathFor(const std::string& path) {
  const std::string ext = ".xml";
  if (path.size() >= ext.size() && path.compare(path.size() - ext.size(), ext.size(), ext) == 0) {
    return path.substr(0, path.size() - ext.size()) + "_Backup" + ext;
  }
  return path + "_Backup";
}

namespace {

bool loadCurrent(const std::string& path, CXmlBase& doc) {
  if (path == getConfigFilePath()) return readConfigFile(doc) == 1;
  return doc.LoadFile(path) == 1;
}

OxBase::WriteOutcome storeCurrent(const std::string& path, const CXmlBase& doc, OxBase::FileMode mode) {
  const std::string text = doc.ToString();
  if (path != getConfigFilePath()) return OxBase::WriteFileAtomic(path, text, mode);
  std::unique_lock<OxBase::CRWLock> lock(m_gConfigFileLock);
  return OxBase::WriteFileAtomic(path, text, mode);
}

}  // namespace

bool mergeBackupFile(const std::string& path, OxBase::FileMode mode,
                     const std::function<void(CXmlBase& current, CXmlBase& backup)>& merge) {
  const std::string backupPath = backupPathFor(path);
  if (OSL_AccessFile(backupPath.c_str(), 0) != 0) return false;

  ConfigFileTxn txn(path);
  CXmlBase backup, current;
  if (backup.LoadFile(backupPath) != 1 || !loadCurrent(path, current)) return false;
  backup.SetRoot();
  current.SetRoot();
  merge(current, backup);

  const OxBase::WriteOutcome out = storeCurrent(path, current, mode);
  if (!out.ok()) {
    xlog_format(5, "OXW", "[%s(%d)] write %s failed[%d], %s kept", "mergeBackupFile", __LINE__,
                path.c_str(), out.error, backupPath.c_str());
    return false;
  }
  OSL_DeleteFile(backupPath.c_str());
  return true;
}

}  // namespace OxConfigMgr
