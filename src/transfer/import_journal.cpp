#include "transfer/import_journal.h"

#include <cerrno>
#include <memory>
#include <set>
#include <sstream>

#include "frame/config_txn.h"
#include "platform/env.h"
#include "platform/file_lock.h"
#include "platform/file_tree.h"
#include "platform/file_util.h"
#include "platform/secure_wipe.h"
#include "platform/xlog.h"

namespace OxConfigMgr {
namespace transfer {

using OxBase::FileMode;

const char* const kImportJournalDir = "importJournal";

namespace {

const char* const kManifest = "manifest";
const char* const kHeader = "oxcfg import journal 1";
const char* const kEnd = "end";
constexpr mode_t kJournalDirMode = 0700;
constexpr size_t kMaxManifestBytes = 64 * 1024;
// A journaled file is held in memory once; a database beyond this refuses
// the import rather than exhaust memory.
constexpr size_t kMaxJournaledBytes = size_t{256} << 20;

// What keeps other writers off a file while it is copied aside or put back.
enum class Guard { kConfigTxn, kDatabaseLock, kNone };

struct Journalable {
  const char* name;
  FileMode mode;
  Guard guard;
  const char* database;  // the database whose lock file guards it
};

// Every file an import may change or create. A database's rollback journal
// goes with it: one left from the new database would be applied to the old
// one (or the reverse) and corrupt it.
const Journalable kJournalable[] = {
    {"Config.xml", FileMode::kKeep, Guard::kConfigTxn, nullptr},
    {"PrivateConfig.xml", FileMode::kSecret, Guard::kConfigTxn, nullptr},
    {"QAPIConfig.xml", FileMode::kKeep, Guard::kConfigTxn, nullptr},
    {"nginx/conf/cert.key", FileMode::kSecret, Guard::kNone, nullptr},
    {"nginx/conf/cert.pem", FileMode::kKeep, Guard::kNone, nullptr},
    {"nginx/conf/key.pass", FileMode::kSecret, Guard::kNone, nullptr},
    {"Device.db3", FileMode::kKeep, Guard::kDatabaseLock, "Device.db3"},
    {"Device.db3-journal", FileMode::kKeep, Guard::kDatabaseLock, "Device.db3"},
    {"Config.db3", FileMode::kSecret, Guard::kDatabaseLock, "Config.db3"},
    {"Config.db3-journal", FileMode::kSecret, Guard::kDatabaseLock, "Config.db3"},
};

const Journalable* findJournalable(const std::string& name) {
  for (const Journalable& j : kJournalable) {
    if (name == j.name) return &j;
  }
  return nullptr;
}

// Holds the lock that guards one journaled file for its lifetime.
class FileGuard {
 public:
  FileGuard(const Journalable& j, const std::string& workDir) {
    if (j.guard == Guard::kConfigTxn) {
      txn_.reset(new ConfigFileTxn(workDir + j.name));
    } else if (j.guard == Guard::kDatabaseLock) {
      lock_.reset(new OxBase::FileLock(OxBase::LockPathFor(workDir + j.database)));
    }
  }
  bool ok() const { return txn_ ? txn_->ok() : lock_ ? lock_->ok() : true; }

 private:
  std::unique_ptr<ConfigFileTxn> txn_;
  std::unique_ptr<OxBase::FileLock> lock_;
};

std::string folderOf(const std::string& workDir) { return workDir + kImportJournalDir; }
std::string copyPath(const std::string& folder, size_t index) { return folder + "/" + std::to_string(index); }

bool readFile(const std::string& path, std::string* out, size_t limit) {
  return OxBase::InspectEntry(path) == OxBase::EntryKind::kFile && OxBase::ReadWholeFile(path, out, limit);
}

// Puts every entry back: a file that existed is rewritten from its copy
// unless it already holds that content, one that did not is removed. True
// when every file is back and durable.
bool restoreEntries(const std::string& workDir, const std::vector<JournalEntry>& entries) {
  const std::string folder = folderOf(workDir);
  OxBase::Env* env = OxBase::Env::Current();
  bool ok = true;
  for (size_t i = 0; i < entries.size(); ++i) {
    const Journalable* j = findJournalable(entries[i].name);
    if (!j) return false;
    const std::string live = workDir + j->name;
    FileGuard guard(*j, workDir);
    if (!guard.ok()) {
      ok = false;
      continue;
    }
    if (entries[i].present) {
      std::string saved, current;
      if (!readFile(copyPath(folder, i), &saved, kMaxJournaledBytes)) {
        OXLOG(5, "[%s(%d)] read import journal failed, path[%s]", copyPath(folder, i).c_str());
        ok = false;
        continue;
      }
      const bool same = readFile(live, &current, kMaxJournaledBytes) && current == saved;
      if (!same && !OxBase::WriteFileAtomic(live, saved, j->mode).ok()) ok = false;
      OxBase::SecureWipe(saved);
      OxBase::SecureWipe(current);
    } else if (OxBase::InspectEntry(live) != OxBase::EntryKind::kMissing) {
      if ((env->Unlink(live) != 0 && errno != ENOENT) || env->SyncDir(OxBase::DirName(live)) != 0) ok = false;
    }
  }
  return ok;
}

// Removing the manifest is the point after which the journal no longer
// counts. True when it is gone (also when only the directory sync failed:
// it is gone for every reader, as an atomic write that landed).
bool removeManifest(const std::string& folder) {
  OxBase::Env* env = OxBase::Env::Current();
  const std::string manifest = folder + "/" + kManifest;
  if (env->Unlink(manifest) != 0 && errno != ENOENT) {
    OXLOG(5, "[%s(%d)] remove import journal manifest failed, path[%s],error[%d]", manifest.c_str(), errno);
    return false;
  }
  if (env->SyncDir(folder) != 0) {
    OXLOG(4, "[%s(%d)] sync import journal failed, path[%s],error[%d]", folder.c_str(), errno);
  }
  return true;
}

}  // namespace

bool IsJournalable(const std::string& name) { return findJournalable(name) != nullptr; }

std::string FormatJournalManifest(const std::vector<JournalEntry>& entries) {
  std::string text = std::string(kHeader) + "\n";
  for (const JournalEntry& e : entries) text += std::string(e.present ? "1 " : "0 ") + e.name + "\n";
  return text + kEnd + "\n";
}

bool ParseJournalManifest(const std::string& text, std::vector<JournalEntry>* entries) {
  std::vector<JournalEntry> out;
  std::set<std::string> seen;
  std::istringstream in(text);
  std::string line;
  if (!std::getline(in, line) || line != kHeader) return false;
  while (std::getline(in, line)) {
    if (line == kEnd) {
      // Nothing may follow the end line.
      if (in.peek() != std::char_traits<char>::eof()) return false;
      entries->swap(out);
      return true;
    }
    if (line.size() < 3 || (line[0] != '0' && line[0] != '1') || line[1] != ' ') return false;
    JournalEntry e;
    e.present = line[0] == '1';
    e.name = line.substr(2);
    if (!IsJournalable(e.name) || !seen.insert(e.name).second) return false;
    out.push_back(e);
  }
  return false;
}

ImportJournal::ImportJournal(const std::string& workDir) : workDir_(workDir) {}

ImportJournal::~ImportJournal() {
  try {
    if (active_) RollBack();
  } catch (...) {
    // Out of memory: the complete journal stays for the next start.
  }
}

bool ImportJournal::Begin(const std::vector<std::string>& names) {
  const std::string folder = folderOf(workDir_);
  OxBase::Env* env = OxBase::Env::Current();
  bool complete = false;
  try {
    entries_.clear();
    if (RecoverImportJournal(workDir_) == JournalRecovery::kFailed) return false;
    bool ok = (env->MakeDir(folder, kJournalDirMode) == 0 || errno == EEXIST) && env->SyncDir(workDir_) == 0;
    for (size_t i = 0; ok && i < names.size(); ++i) {
      const Journalable* j = findJournalable(names[i]);
      if (!j) {
        ok = false;
        break;
      }
      const std::string live = workDir_ + j->name;
      FileGuard guard(*j, workDir_);
      JournalEntry entry;
      entry.name = j->name;
      const OxBase::EntryKind kind = OxBase::InspectEntry(live);
      if (!guard.ok()) {
        ok = false;
      } else if (kind == OxBase::EntryKind::kFile) {
        std::string data;
        ok = OxBase::ReadWholeFile(live, &data, kMaxJournaledBytes) &&
             OxBase::WriteFileAtomic(copyPath(folder, i), data, FileMode::kSecret).ok();
        OxBase::SecureWipe(data);
        entry.present = true;
      } else {
        // A link or special file is never followed nor put back.
        ok = kind == OxBase::EntryKind::kMissing;
      }
      if (ok) entries_.push_back(entry);
    }
    complete = ok && OxBase::WriteFileAtomic(folder + "/" + kManifest, FormatJournalManifest(entries_),
                                             FileMode::kSecret)
                         .ok();
  } catch (...) {
    complete = false;
  }
  if (complete) {
    active_ = true;
    return true;
  }
  OXLOG(5, "[%s(%d)] write import journal failed, path[%s],error[%d]", folder.c_str(), errno);
  // Nothing live was touched: the journal only has to go, manifest first.
  removeManifest(folder);
  OxBase::RemoveTree(folder);
  entries_.clear();
  return false;
}

bool ImportJournal::Commit() {
  if (!active_) return false;
  const std::string folder = folderOf(workDir_);
  if (!removeManifest(folder)) return false;
  active_ = false;
  OxBase::RemoveTree(folder);
  return true;
}

bool ImportJournal::RollBack() {
  if (!active_) return true;
  active_ = false;
  const std::string folder = folderOf(workDir_);
  if (!restoreEntries(workDir_, entries_) || !removeManifest(folder)) {
    OXLOG(5, "[%s(%d)] restore import journal failed, path[%s]", folder.c_str());
    return false;
  }
  OxBase::RemoveTree(folder);
  return true;
}

JournalRecovery RecoverImportJournal(const std::string& workDir) {
  try {
    const std::string folder = folderOf(workDir);
    if (OxBase::InspectEntry(folder) == OxBase::EntryKind::kMissing) return JournalRecovery::kNone;
    const std::string manifest = folder + "/" + kManifest;
    if (OxBase::InspectEntry(manifest) == OxBase::EntryKind::kMissing) {
      OxBase::RemoveTree(folder);
      OXLOG(3, "[%s(%d)] incomplete import journal removed, path[%s]", folder.c_str());
      return JournalRecovery::kDiscarded;
    }
    std::string text;
    std::vector<JournalEntry> entries;
    if (!readFile(manifest, &text, kMaxManifestBytes) || !ParseJournalManifest(text, &entries)) {
      OXLOG(5, "[%s(%d)] import journal unreadable, path[%s]", manifest.c_str());
      return JournalRecovery::kFailed;
    }
    if (!restoreEntries(workDir, entries) || !removeManifest(folder)) {
      OXLOG(5, "[%s(%d)] restore import journal failed, path[%s]", folder.c_str());
      return JournalRecovery::kFailed;
    }
    OxBase::RemoveTree(folder);
    OXLOG(4, "[%s(%d)] import journal restored, files[%d]", static_cast<int>(entries.size()));
    return JournalRecovery::kRestored;
  } catch (...) {
    OXLOG(5, "[%s(%d)] restore import journal failed: out of memory");
    return JournalRecovery::kFailed;
  }
}

}  // namespace transfer
}  // namespace OxConfigMgr
