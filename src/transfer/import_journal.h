// The import journal: what makes an import all-or-nothing across a crash.
//
// Before an import changes its first live file, every file it may change or
// create is copied into the folder "importJournal" of the working directory
// (files that did not exist are only noted), each copy durable, and the
// journal is then marked complete by one atomic write of its manifest, last.
// From that moment until the manifest is removed, the live files may hold
// any mix of old and new content, and a complete journal is the way back:
// the import's own roll-back and the next start of the library both put
// every journaled file back (each through an atomic write, or removed when
// it did not exist before) and only then remove the manifest. A journal
// without a manifest was cut short before any live file was touched and is
// simply removed.
//
// Every write and removal goes through the Env. The XML files are written
// under their ConfigFileTxn, the databases and their rollback journals under
// the database's lock file (OxBase::LockPathFor of the database).
#ifndef OXCFG_TRANSFER_IMPORT_JOURNAL_H
#define OXCFG_TRANSFER_IMPORT_JOURNAL_H

#include <string>
#include <vector>

namespace OxConfigMgr {
namespace transfer {

// The journal's folder in the working directory.
extern const char* const kImportJournalDir;

// One journaled file, named relative to the working directory.
struct JournalEntry {
  std::string name;
  bool present = false;  // it existed before the import
};

// True when `name` is one of the files an import may change (the only names
// a journal may hold).
bool IsJournalable(const std::string& name);

// The manifest's text, and its reader: false for anything but a manifest
// this code wrote (header, one "0 name" or "1 name" line per journalable
// file, each at most once, then "end").
std::string FormatJournalManifest(const std::vector<JournalEntry>& entries);
bool ParseJournalManifest(const std::string& text, std::vector<JournalEntry>* entries);

// The journal of one import in `workDir` (ending in a separator). Not
// thread-safe; the import serialises itself.
class ImportJournal {
 public:
  explicit ImportJournal(const std::string& workDir);
  // Rolls back a journal that was neither committed nor rolled back (an
  // import left by an exception). Never throws.
  ~ImportJournal();
  ImportJournal(const ImportJournal&) = delete;
  ImportJournal& operator=(const ImportJournal&) = delete;

  // Restores a complete journal a dead import left, then copies every file
  // of `names` (journalable names) aside and writes the manifest. True when
  // the journal is complete and durable; false when it is not, in which
  // case no journal is left and the caller must not touch the live files.
  bool Begin(const std::vector<std::string>& names);
  // The import is done: removes the manifest (the commit point), then the
  // folder. False when the manifest could not be removed, in which case the
  // journal stays complete and the caller must roll back.
  bool Commit();
  // Puts every journaled file back and removes the journal. False when a
  // file could not be put back: the complete journal then stays for the
  // next start.
  bool RollBack();

 private:
  std::string workDir_;
  std::vector<JournalEntry> entries_;
  bool active_ = false;
};

enum class JournalRecovery {
  kNone,       // no journal
  kDiscarded,  // an incomplete journal was removed
  kRestored,   // a complete journal was put back and removed
  kFailed,     // a complete (or unreadable) journal could not be put back
};

// Run at start, before anything reads the configuration. Logs what it did.
// Never throws.
JournalRecovery RecoverImportJournal(const std::string& workDir);

}  // namespace transfer
}  // namespace OxConfigMgr

#endif  // OXCFG_TRANSFER_IMPORT_JOURNAL_H
