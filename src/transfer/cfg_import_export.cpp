#include <oxconfigmgr/OxCfgImportAndExport.h>
#include <oxconfigmgr/OxConfigMgr.h>
#include <oxconfigmgr/OxPrivateCfg.h>
#include <oxconfigmgr/OxUserCfg.h>

#include <cerrno>
#include <memory>
#include <mutex>
#include <new>
#include <set>
#include <vector>

#include "frame/config_store.h"
#include "frame/config_txn.h"
#include "platform/env.h"
#include "platform/file_lock.h"
#include "platform/file_tree.h"
#include "platform/file_util.h"
#include "platform/osl.h"
#include "platform/oxbase.h"
#include "platform/secure_wipe.h"
#include "platform/xlog.h"
#include "platform/xml_base.h"
#include "transfer/archive_listing.h"
#include "transfer/archive_tool.h"
#include "transfer/import_journal.h"

namespace OxConfigMgr {

using OxBase::CXmlBase;
using OxBase::FileMode;

namespace {

const char* const kStaging = "configuration";
const char* const kExportArchive = "configuration.zip";
const char* const kImportArchive = "configurationIn.zip";
const char* const kMarker = "LinuxConfig.xml";
const char* const kArchiver = "7za";
const char* const kCertDir = "nginx/conf/";
constexpr int kExecutable = 1;  // access(2) X_OK
constexpr mode_t kStagingMode = 0700;

// The private sections that describe the local machine and never leave it.
const char* const kLocalPrivateSections[] = {"LDM", "HTTPService", "WebSocketService",
                                             "InternalCommunication", "Log"};

struct CertFile {
  const char* name;
  FileMode mode;
};
const CertFile kCertFiles[] = {{"cert.key", FileMode::kSecret},
                               {"cert.pem", FileMode::kKeep},
                               {"key.pass", FileMode::kSecret}};

std::string stagingDir() { return OX_BASE_GetCurDir() + kStaging; }
std::string staged(const std::string& name) { return stagingDir() + "/" + name; }

// One import or export at a time in this process; the lock file of the
// staging folder keeps other processes of the same directory out.
std::mutex& callMutex() {
  static std::mutex m;
  return m;
}

bool isFile(const std::string& path) { return OxBase::InspectEntry(path) == OxBase::EntryKind::kFile; }

// Replaces `to` with a copy of the regular file `from`, atomically: the copy
// is written beside the target, synced and renamed over it, so a crash leaves
// the old file or the new one. Links are not followed.
bool copyFileAtomic(const std::string& from, const std::string& to, FileMode mode) {
  if (!isFile(from)) return false;
  std::string data;
  if (!OxBase::ReadWholeFile(from, &data, transfer::currentArchiveLimits().maxEntryBytes)) return false;
  bool ok = OxBase::WriteFileAtomic(to, data, mode).landed();
  OxBase::SecureWipe(data);
  return ok;
}

// A fresh, private staging folder: whatever an interrupted run left goes.
void freshStagingFolder() {
  OxBase::RemoveTree(stagingDir());
  OxBase::Env::Current()->MakeDir(stagingDir(), kStagingMode);
}

bool archiverPresent(const std::string& dir) {
  return OSL_AccessFile((dir + kArchiver).c_str(), kExecutable) == 0;
}

// The archive file's size and central directory are within bounds, so that
// its listing stays small.
bool archiveFileAcceptable(const std::string& path, const transfer::ArchiveLimits& limits,
                           std::string* reason) {
  uint64_t size = 0;
  if (OxBase::InspectEntry(path, &size) != OxBase::EntryKind::kFile) {
    *reason = "no archive file";
    return false;
  }
  if (size > limits.maxArchiveBytes) {
    *reason = "archive too large";
    return false;
  }
  OSL_File f = OSL_OpenFile(path.c_str(), OSL_FILE_READ | OSL_FILE_BINARY, 0);
  if (f == OSL_INVALID_FILE) {
    *reason = "archive unreadable";
    return false;
  }
  size_t want = static_cast<size_t>(size < transfer::kZipTailBytes ? size : transfer::kZipTailBytes);
  std::vector<unsigned char> tail(want);
  size_t got = 0;
  if (OSL_SeekFile(f, static_cast<int64_t>(size - want), OSL_SEEK_SET) >= 0) {
    while (got < want) {
      int n = OSL_ReadFile(f, tail.data() + got, static_cast<int>(want - got));
      if (n <= 0) break;
      got += static_cast<size_t>(n);
    }
  }
  OSL_CloseFile(f);
  if (got != want) {
    *reason = "archive unreadable";
    return false;
  }
  transfer::ZipDirectory directory;
  return transfer::readZipDirectory(tail.data(), tail.size(), size, limits, &directory, reason);
}

// After unpacking, the staging folder holds exactly regular files that the
// listing announced, within the size bounds: a link or special file that the
// archiver made anyway, or content beyond the listing, refuses the archive.
bool stagingMatchesListing(const std::vector<transfer::ArchiveEntry>& entries,
                           const transfer::ArchiveLimits& limits, std::string* reason) {
  std::set<std::string> announced;
  for (const auto& e : entries) {
    if (!e.folder) announced.insert(e.path.substr(e.path.find('/') + 1));
  }
  OSL_Dir* d = OSL_OpenDir(stagingDir().c_str());
  if (!d) {
    *reason = "nothing unpacked";
    return false;
  }
  bool ok = true;
  uint64_t total = 0;
  OSL_FileInfo info;
  while (ok && OSL_FindFileInDir(d, &info) == 0) {
    uint64_t size = 0;
    const std::string name = info.name;
    if (!announced.count(name)) {
      *reason = "unannounced entry: " + name;
      ok = false;
    } else if (OxBase::InspectEntry(staged(name), &size) != OxBase::EntryKind::kFile) {
      *reason = "not a regular file: " + name;
      ok = false;
    } else if (size > limits.maxEntryBytes || (total += size) > limits.maxTotalBytes) {
      *reason = "unpacked too large: " + name;
      ok = false;
    }
  }
  OSL_CloseDir(d);
  return ok;
}

// The files an import may change: the three XML files always (the private
// one is also rewritten when the new settings are taken in), and the
// certificate files and databases the archive holds, each database with its
// rollback journal.
std::vector<std::string> journaledFiles() {
  std::vector<std::string> names = {"Config.xml", "PrivateConfig.xml", "QAPIConfig.xml"};
  for (const CertFile& f : kCertFiles) {
    if (isFile(staged(f.name))) names.push_back(std::string(kCertDir) + f.name);
  }
  for (const char* db : {"Device.db3", "Config.db3"}) {
    if (!isFile(staged(db))) continue;
    names.push_back(db);
    names.push_back(std::string(db) + "-journal");
  }
  return names;
}

// Replaces the live database `name` with the archive's, holding the
// database's lock file so that no start creates or upgrades it meanwhile. A
// rollback journal the replaced database left behind would be applied to the
// new one by its next opener, so it goes too (the import journal keeps it).
// True when the archive holds no such database or the new one is in place.
bool replaceDatabaseFile(const char* name, FileMode mode) {
  const std::string from = staged(name);
  if (!isFile(from)) return true;
  const std::string live = OX_BASE_GetCurDir() + name;
  OxBase::FileLock lock(OxBase::LockPathFor(live));
  if (!lock.ok()) {
    OXLOG(5, "[%s(%d)] lock database failed, path[%s],error[%d]", live.c_str(), lock.error());
    return false;
  }
  if (!copyFileAtomic(from, live, mode)) return false;
  const std::string rollbackJournal = live + "-journal";
  return OxBase::InspectEntry(rollbackJournal) == OxBase::EntryKind::kMissing ||
         OxBase::Env::Current()->Unlink(rollbackJournal) == 0 || errno == ENOENT;
}

// After a roll-back, the objects that took in the imported settings read
// the restored files again, so memory follows the disk.
void reloadAfterRollBack() {
  if (std::shared_ptr<CPrivateCfg> priv = OX_ConfigMgr_GetPrivateCfg()) priv->loadFile();
  if (std::shared_ptr<CUserCfg> users = OX_ConfigMgr_GetUserCfg()) users->loadDatabase(1);
}

// Sets the text of `Config/<section>/<field>` of the live document.
bool setConfigLeaf(CXmlBase& xml, const char* section, const char* field, const std::string& value) {
  return xmlWalk(xml, {"Config", section}) && xml.IntoElem() && xml.ModifyData(field, value.c_str()) == 1;
}

}  // namespace

CCfgImportAndExport::CCfgImportAndExport() = default;
CCfgImportAndExport::~CCfgImportAndExport() = default;

// ---------------------------------------------------------------- export --

int CCfgImportAndExport::exportConfigData(std::string& data, const std::string& password) {
  int result = EXPORT_FAILED;
  try {
    std::lock_guard<std::mutex> call(callMutex());
    ConfigFileTxn stagingLock(stagingDir());
    try {
      freshStagingFolder();
      std::string archive;
      if (!exportDBTable()) {
        OXLOG(5, "[%s(%d)] exportDBTable faild.");
      } else if (!exportXMLCfg()) {
        OXLOG(5, "[%s(%d)] exportXMLCfg faild.");
      } else if (!encryptCompressCfg(password)) {
        OXLOG(5, "[%s(%d)] encryptCompressCfg faild.");
      } else if (!readcompressCfgFile(archive)) {
        OXLOG(5, "[%s(%d)] readcompressCfgFile faild.");
      } else {
        data.swap(archive);
        result = EXPORT_OK;
      }
    } catch (...) {
      result = EXPORT_FAILED;
    }
    // A partial archive of a failed run goes too.
    OxBase::Env::Current()->Unlink(OX_BASE_GetCurDir() + kExportArchive);
    deleteCfgFile(stagingDir());
  } catch (...) {
    result = EXPORT_FAILED;
  }
  // Logged whatever the result.
  OXLOG(3, "[%s(%d)] exportConfigData succ.");
  return result;
}

int CCfgImportAndExport::exportDBTable() {
  const std::string dir = OX_BASE_GetCurDir();
  // The copies are not checked: a database that is missing is left out.
  for (const char* name : {"Config.db3", "Device.db3"}) {
    if (isFile(dir + name)) copyFileAtomic(dir + name, staged(name), FileMode::kSecret);
  }
  return 1;
}

int CCfgImportAndExport::exportXMLCfg() {
  if (!exportConfigXMLFile()) {
    OXLOG(5, "[%s(%d)] exportConfigXMLFile faild!");
    return 0;
  }
  if (!exportPrivateConfigXMLFile()) {
    OXLOG(5, "[%s(%d)] exportPrivateConfigXMLFile faild!");
    return 0;
  }
  if (!exportHttpsConfigFile()) {
    OXLOG(5, "[%s(%d)] exportHttpsConfigFile faild!");
    return 0;
  }
  if (!exportQAPIConfigXMLFile()) {
    OXLOG(5, "[%s(%d)] exportQAPIConfigXMLFile faild!");
    return 0;
  }
  if (!exportLinuxConfigFlag()) {
    OXLOG(5, "[%s(%d)] exportLinuxConfigFlag faild!");
    return 0;
  }
  OXLOG(3, "[%s(%d)] CCfgImportAndExport exportXMLCfg succ.");
  return 1;
}

int CCfgImportAndExport::exportConfigXMLFile() {
  CXmlBase xml;
  if (!readConfigFile(xml)) return 0;
  // The NAT gateway's port ranges belong to the local machine.
  if (xmlWalk(xml, {"Config"})) xml.RemoveChildren("NATGateway");
  const std::string path = staged("Config.xml");
  if (xml.WriteToFile(path, FileMode::kSecret) != 1) {
    OXLOG(5, "[%s(%d)] WriteToFile faild[Path = %s]", path.c_str());
    return 0;
  }
  return 1;
}

int CCfgImportAndExport::exportPrivateConfigXMLFile() {
  CXmlBase xml;
  if (xml.LoadFile(getPrivateConfigFilePath()) != 1) {
    OXLOG(5, "[%s(%d)] PrivateConfig file is not exist");
    return 0;
  }
  if (xmlWalk(xml, {"PrivateConfig"})) {
    for (const char* section : kLocalPrivateSections) xml.RemoveChildren(section);
  }
  const std::string path = staged("PrivateConfig.xml");
  if (xml.WriteToFile(path, FileMode::kSecret) != 1) {
    OXLOG(5, "[%s(%d)] WriteToFile faild[Path = %s]", path.c_str());
    return 0;
  }
  return 1;
}

int CCfgImportAndExport::exportQAPIConfigXMLFile() {
  CXmlBase xml;
  if (xml.LoadFile(getQAPIConfigFilePath()) != 1) {
    OXLOG(5, "[%s(%d)] QAPIConfig file is not exist");
    return 0;
  }
  const std::string path = staged("QAPIConfig.xml");
  if (xml.WriteToFile(path, FileMode::kSecret) != 1) {
    OXLOG(5, "[%s(%d)] WriteToFile faild[Path = %s]", path.c_str());
    return 0;
  }
  return 1;
}

int CCfgImportAndExport::exportHttpsConfigFile() {
  const std::string dir = OX_BASE_GetCurDir() + kCertDir;
  // The certificate files may not exist yet; the copies are not checked.
  for (const CertFile& f : kCertFiles) {
    if (isFile(dir + f.name)) copyFileAtomic(dir + f.name, staged(f.name), FileMode::kSecret);
  }
  return 1;
}

int CCfgImportAndExport::exportLinuxConfigFlag() {
  CXmlBase marker;
  const std::string path = staged(kMarker);
  if (marker.WriteToFile(path, FileMode::kSecret) != 1) {
    OXLOG(5, "[%s(%d)] WriteToFile faild[Path = %s]", path.c_str());
    return 0;
  }
  return 1;
}

int CCfgImportAndExport::encryptCompressCfg(const std::string& password) {
  const std::string dir = OX_BASE_GetCurDir();
  OXLOG(2, "[%s(%d)] \"%s7za\" a \"%sconfiguration.zip\" \"%sconfiguration\" -p\"******\" -tzip", dir.c_str(),
        dir.c_str(), dir.c_str());
  if (!archiverPresent(dir)) {
    OXLOG(5, "[%s(%d)] %s7za is not exist", dir.c_str());
    return 0;
  }
  std::string pw = transfer::archiverPassword(password);
  OxBase::ScopedWipe wipePw(pw.empty() ? nullptr : &pw[0], pw.size());
  // An empty password would make an archive without encryption.
  if (pw.empty()) return 0;
  // Without this, the archiver would add to an archive an interrupted run left.
  OxBase::Env::Current()->Unlink(dir + kExportArchive);
  // The archiver asks for the password twice (entry and confirmation).
  std::string input;
  input.reserve(2 * pw.size() + 2);
  input.append(pw).append("\n").append(pw).append("\n");
  OxBase::ScopedWipe wipeInput(&input[0], input.size());
  transfer::ArchiverRun run = transfer::runArchiver(
      {dir + kArchiver, "a", dir + kExportArchive, dir + kStaging, "-p", "-tzip", "-mem=AES256", "-y"}, input,
      dir, transfer::currentArchiveLimits());
  if (run.exitCode != 0) {
    OXLOG(4, "[%s(%d)] 7za a exited with %d", run.exitCode);
    return 0;
  }
  return 1;
}

int CCfgImportAndExport::readcompressCfgFile(std::string& data) {
  const std::string path = OX_BASE_GetCurDir() + kExportArchive;
  int ok = 0;
  OSL_File f = OSL_OpenFile(path.c_str(), OSL_FILE_READ | OSL_FILE_BINARY, 0);
  if (f == OSL_INVALID_FILE) {
    OXLOG(5, "[%s(%d)] open configuration.zip file for read failed, path[%s],error[%d]", path.c_str(),
          OSL_GetSystemLastError());
  } else {
    int64_t size = OSL_SeekFile(f, 0, OSL_SEEK_END);
    const uint64_t limit = transfer::currentArchiveLimits().maxEntryBytes;
    char* buf = size < 0 || static_cast<uint64_t>(size) > limit
                    ? nullptr
                    : new (std::nothrow) char[static_cast<size_t>(size) + 1];
    std::unique_ptr<char[]> owner(buf);
    if (!buf) {
      OXLOG(5, "[%s(%d)] new buf error[%d][%d]", static_cast<int>(size), OSL_GetSystemLastError());
    } else {
      int64_t got = 0;
      if (OSL_SeekFile(f, 0, OSL_SEEK_SET) == 0) {
        while (got < size) {
          int n = OSL_ReadFile(f, buf + got, static_cast<int>(size - got));
          if (n <= 0) break;
          got += n;
        }
      }
      if (got != size) {
        OXLOG(5, "[%s(%d)] read configuration.zip file failed, path[%s],error[%d]", path.c_str(),
              OSL_GetSystemLastError());
      } else {
        data.assign(buf, static_cast<size_t>(size));
        OXLOG(3, "[%s(%d)] read read compressCfg file succ");
        ok = 1;
      }
    }
    OSL_CloseFile(f);
  }
  OSL_DeleteFile(path.c_str());
  return ok;
}

// ---------------------------------------------------------------- import --

int CCfgImportAndExport::importConfigData(const std::string& password) {
  int result = IMPORT_FAILED;
  try {
    std::lock_guard<std::mutex> call(callMutex());
    ConfigFileTxn stagingLock(stagingDir());
    try {
      result = IMPORT_OK;
      std::string current, version;
      const bool unpacked = decryptExtractCfg(password) == 1;
      if (unpacked) {
        current = getVersion(getConfigFilePath());
        version = getVersion(staged("Config.xml"));
      }
      if (!unpacked) {
        OXLOG(5, "[%s(%d)] decryptExtractCfg faild.");
        result = IMPORT_UNPACK_FAILED;
      } else if (version.empty()) {
        result = IMPORT_UNPACK_FAILED;
      } else if (current < version) {
        // Plain byte-wise comparison of the texts: "V1.10" counts as older
        // than "V1.9".
        OXLOG(4, "[%s(%d)] import ConfigData Version is Mismatch.[current Version:%s, cfg Version:%s]",
              current.c_str(), version.c_str());
        result = IMPORT_NEWER_VERSION;
      } else if (!isLinuxConfigFlag()) {
        OXLOG(4, "[%s(%d)] import ConfigData is Windows Operating System.");
        result = IMPORT_NOT_LINUX_CONFIG;
      } else {
        // The three XML files stay locked from their backup to the end, so
        // that neither the merge nor a roll-back can lose another writer's
        // change, in this process or another.
        ConfigFileTxn configTxn(getConfigFilePath());
        ConfigFileTxn privateTxn(getPrivateConfigFilePath());
        ConfigFileTxn qapiTxn(getQAPIConfigFilePath());
        CXmlBase config, privateCfg, qapi;
        // Every file the import may change is copied aside before the first
        // is touched; a failure below, or a crash (then the next start),
        // puts them all back.
        transfer::ImportJournal journal(OX_BASE_GetCurDir());
        if (!backupXMLCfg(config, privateCfg, qapi) || !journal.Begin(journaledFiles())) {
          OXLOG(5, "[%s(%d)] backupXMLCfg faild.");
          result = IMPORT_FAILED;
        } else if (!importXMLCfg(current)) {
          OXLOG(5, "[%s(%d)] importXMLCfg faild.");
          journal.RollBack();
          result = IMPORT_FAILED;
        } else {
          result = replaceDatabases();
          // Removing the journal is the import's commit point.
          if (result == IMPORT_OK && !journal.Commit()) result = IMPORT_FAILED;
          if (result != IMPORT_OK) {
            journal.RollBack();
            reloadAfterRollBack();
          }
        }
      }
    } catch (...) {
      result = IMPORT_FAILED;
    }
    deleteCfgFile(stagingDir());
  } catch (...) {
    result = IMPORT_FAILED;
  }
  // Logged whatever the result.
  OXLOG(3, "[%s(%d)] importConfigData succ.");
  return result;
}

int CCfgImportAndExport::replaceDatabases() {
  tagUserInfo record;
  OxBase::ScopedWipe wipeRecord(&record, sizeof record);
  try {
    std::shared_ptr<CUserCfg> users = OX_ConfigMgr_GetUserCfg();
    if (!users) {
      OXLOG(5, "[%s(%d)] OX_ConfigMgr_GetUserCfg faild.");
      return IMPORT_FAILED;
    }
    users->getUserInfo(record);
    std::shared_ptr<CPrivateCfg> priv = OX_ConfigMgr_GetPrivateCfg();
    if (!priv) {
      OXLOG(5, "[%s(%d)] OX_ConfigMgr_GetPrivateCfg faild.");
      return IMPORT_FAILED;
    }
    importDeviceDBTable();
    // The merged private file now holds the archive's storage key, which
    // opens only the archive's database: if that database did not replace
    // the live one, everything goes back so that key and database match.
    if (!importConfigDBTable()) {
      OXLOG(5, "[%s(%d)] importConfigDBTable faild.");
      return IMPORT_FAILED;
    }
    priv->loadFile();
    users->loadDatabase(1);
    // The administrator's credentials from before the import stay in force.
    users->setUserInfo(record);
    return IMPORT_OK;
  } catch (...) {
    return IMPORT_FAILED;
  }
}

int CCfgImportAndExport::decryptExtractCfg(const std::string& password) {
  const std::string dir = OX_BASE_GetCurDir();
  const std::string archive = dir + kImportArchive;
  const transfer::ArchiveLimits limits = transfer::currentArchiveLimits();
  OXLOG(2, "[%s(%d)] \"%s7za\" x \"%sconfigurationIn.zip\"  -p\"******\"", dir.c_str(), dir.c_str());
  // A folder left by an interrupted run must not mix with this archive.
  OxBase::RemoveTree(stagingDir());
  if (!archiverPresent(dir)) {
    OXLOG(5, "[%s(%d)] %s7za is not exist", dir.c_str());
    return 0;
  }
  std::string reason;
  if (!archiveFileAcceptable(archive, limits, &reason)) {
    OXLOG(4, "[%s(%d)] archive refused: %s", reason.c_str());
    return 0;
  }
  // Nothing is unpacked before the listing shows that every entry lands
  // inside the staging folder: the archiver itself rewrites "../" and
  // absolute names instead of refusing them.
  transfer::ArchiverRun list =
      transfer::runArchiver({dir + kArchiver, "l", "-slt", "-tzip", "-y", archive}, "", dir, limits);
  if (list.exitCode != 0) {
    OXLOG(4, "[%s(%d)] 7za l exited with %d", list.exitCode);
    return 0;
  }
  std::vector<transfer::ArchiveEntry> entries;
  if (!transfer::checkArchiveListing(list.output, kStaging, limits, &entries, &reason)) {
    OXLOG(4, "[%s(%d)] archive refused: %s", reason.c_str());
    return 0;
  }
  std::string pw = transfer::archiverPassword(password);
  OxBase::ScopedWipe wipePw(pw.empty() ? nullptr : &pw[0], pw.size());
  std::string input;
  input.reserve(pw.size() + 1);
  input.append(pw).append("\n");
  OxBase::ScopedWipe wipeInput(&input[0], input.size());
  OxBase::Env::Current()->MakeDir(stagingDir(), kStagingMode);
  // Unpacked into the working directory, where the archive's folder
  // "configuration" becomes the staging folder. The archiver asks for the
  // password once, and only when an entry is encrypted.
  transfer::ArchiverRun run =
      transfer::runArchiver({dir + kArchiver, "x", archive, "-tzip", "-y"}, input, dir, limits);
  if (run.exitCode != 0) {
    OXLOG(4, "[%s(%d)] 7za x exited with %d", run.exitCode);
    return 0;
  }
  if (!stagingMatchesListing(entries, limits, &reason)) {
    OXLOG(4, "[%s(%d)] archive refused: %s", reason.c_str());
    return 0;
  }
  return 1;
}

std::string CCfgImportAndExport::getVersion(const std::string& path) {
  CXmlBase xml;
  if (xml.LoadFile(path) != 1) {
    OXLOG(5, "[%s(%d)] LoadFile faild[path = %s]", path.c_str());
    return std::string();
  }
  if (!xmlWalk(xml, {"Config", "BasicInfo", "SoftwareVersion"})) return std::string();
  return xml.GetData();
}

int CCfgImportAndExport::isLinuxConfigFlag() {
  OSL_Dir* d = OSL_OpenDir(stagingDir().c_str());
  if (!d) return 0;
  bool found = false;
  OSL_FileInfo info;
  while (!found && OSL_FindFileInDir(d, &info) == 0) found = OSL_Strcmp(info.name, kMarker) == 0;
  OSL_CloseDir(d);
  if (found) OXLOG(3, "[%s(%d)] LinuxConfig.xml file is exist.");
  return found ? 1 : 0;
}

int CCfgImportAndExport::backupXMLCfg(CXmlBase& config, CXmlBase& privateCfg, CXmlBase& qapi) {
  if (!readConfigFile(config)) return 0;
  if (privateCfg.LoadFile(getPrivateConfigFilePath()) != 1) {
    OXLOG(5, "[%s(%d)] config file is not exist");
    return 0;
  }
  if (qapi.LoadFile(getQAPIConfigFilePath()) != 1) {
    OXLOG(5, "[%s(%d)] config file is not exist");
    return 0;
  }
  return 1;
}

int CCfgImportAndExport::importXMLCfg(const std::string& currentVersion) {
  if (!importConfigXMLFile(currentVersion)) {
    OXLOG(5, "[%s(%d)] importConfigXMLFile faild!");
    return 0;
  }
  if (!importPrivateConfigXMLFile()) {
    OXLOG(5, "[%s(%d)] importPrivateConfigXMLFile faild!");
    return 0;
  }
  if (!importQAPIConfigXMLFile()) {
    OXLOG(5, "[%s(%d)] importQAPIConfigXMLFile faild!");
    return 0;
  }
  if (!importHttpsConfigFile()) {
    OXLOG(5, "[%s(%d)] importHttpsConfigFile faild!");
    return 0;
  }
  OXLOG(3, "[%s(%d)] CCfgImportAndExport importXMLCfg succ.");
  return 1;
}

int CCfgImportAndExport::importConfigXMLFile(const std::string& currentVersion) {
  const std::string path = staged("Config.xml");
  CXmlBase imported, live;
  if (imported.LoadFile(path) != 1) {
    OXLOG(5, "[%s(%d)] LoadFile faild[path = %s]", path.c_str());
    return 0;
  }
  ConfigFileTxn txn(getConfigFilePath());
  if (!readConfigFile(live)) return 0;
  std::string eventSub;
  if (xmlWalk(imported, {"Config", "EventSubCfg", "Enable"})) eventSub = imported.GetData();

  // Elements both files have take the archive's value; elements only the
  // live file has (such as "NATGateway") keep theirs.
  live.SetRoot();
  imported.SetRoot();
  copyXMLRecursive(live, imported, nullptr);
  updateNetworkCfg(live, imported);
  // The file keeps naming the software that runs.
  if (!setConfigLeaf(live, "BasicInfo", "SoftwareVersion", currentVersion)) {
    OXLOG(5, "[%s(%d)] ModifyData SoftwareVersion faild[%s].", currentVersion.c_str());
    return 0;
  }
  // The listening switch takes the archive's event-subscription switch, not
  // its own: a deliberate cross-over that archives rely on.
  if (!setConfigLeaf(live, "WispListenCfg", "Enable", eventSub)) {
    OXLOG(5, "[%s(%d)] ModifyData Enable faild[%s].", eventSub.c_str());
    return 0;
  }
  return writeConfigFile(live);
}

int CCfgImportAndExport::updateNetworkCfg(CXmlBase& live, CXmlBase& imported) {
  // The merge cannot carry a list of like-named elements, so the address
  // list is rebuilt from the archive's, entry for entry.
  if (!xmlWalk(imported, {"Config", "Network", "AddrList"})) return 1;
  if (!xmlWalk(live, {"Config", "Network", "AddrList"})) return 1;
  live.RemoveChildren("Addr");
  if (!imported.IntoElem()) return 1;
  for (bool more = imported.FindElem("Addr"); more; more = imported.FindNextElem("Addr")) {
    live.AddNode("Addr");  // current: the new Addr
    live.AddNode("V4");    // current: its V4
    bool hasProtocol = false;
    std::string protocol;
    if (imported.IntoElem()) {
      if (imported.FindElem("V4") && imported.IntoElem()) {
        for (const char* field : {"IP", "ExternalIP", "DeviceExternal"}) {
          if (imported.FindElem(field)) live.AddNode(field, imported.GetData());
        }
        imported.OutOfElem();
      }
      if (imported.FindElem("Protocol")) {
        hasProtocol = true;
        protocol = imported.GetData();
      }
      imported.OutOfElem();
    }
    live.OutOfElem();  // current: the new Addr
    if (hasProtocol) live.AddNode("Protocol", protocol.c_str());
    live.OutOfElem();  // current: AddrList
  }
  imported.OutOfElem();
  return 1;
}

int CCfgImportAndExport::importPrivateConfigXMLFile() {
  const std::string path = staged("PrivateConfig.xml");
  CXmlBase imported, live;
  if (imported.LoadFile(path) != 1) {
    OXLOG(5, "[%s(%d)] LoadFile faild[path = %s]", path.c_str());
    return 0;
  }
  ConfigFileTxn txn(getPrivateConfigFilePath());
  if (live.LoadFile(getPrivateConfigFilePath()) != 1) {
    OXLOG(5, "[%s(%d)] config file is not exist");
    return 0;
  }
  live.SetRoot();
  imported.SetRoot();
  copyXMLRecursive(live, imported, nullptr);
  return live.WriteToFile(getPrivateConfigFilePath(), FileMode::kSecret) == 1 ? 1 : 0;
}

int CCfgImportAndExport::importQAPIConfigXMLFile() {
  const std::string path = staged("QAPIConfig.xml");
  CXmlBase imported, live;
  if (imported.LoadFile(path) != 1) {
    OXLOG(5, "[%s(%d)] LoadFile faild[path = %s]", path.c_str());
    return 0;
  }
  ConfigFileTxn txn(getQAPIConfigFilePath());
  if (live.LoadFile(getQAPIConfigFilePath()) != 1) {
    OXLOG(5, "[%s(%d)] config file is not exist");
    return 0;
  }
  live.SetRoot();
  imported.SetRoot();
  copyXMLRecursive(live, imported, nullptr);
  return live.WriteToFile(getQAPIConfigFilePath()) == 1 ? 1 : 0;
}

int CCfgImportAndExport::importHttpsConfigFile() {
  const std::string dir = OX_BASE_GetCurDir() + kCertDir;
  // Certificate files the archive does not hold stay as they are; the copies
  // are not checked.
  for (const CertFile& f : kCertFiles) {
    if (isFile(staged(f.name))) copyFileAtomic(staged(f.name), dir + f.name, f.mode);
  }
  return 1;
}

int CCfgImportAndExport::importDeviceDBTable() {
  replaceDatabaseFile("Device.db3", FileMode::kKeep);
  return 1;
}

int CCfgImportAndExport::importConfigDBTable() {
  return replaceDatabaseFile("Config.db3", FileMode::kSecret) ? 1 : 0;
}

int CCfgImportAndExport::deleteCfgFile(const std::string& dir) {
  OxBase::RemoveTree(dir);
  return 1;
}

}  // namespace OxConfigMgr
