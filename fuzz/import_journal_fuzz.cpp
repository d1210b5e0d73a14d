// Feeds arbitrary bytes as the manifest of an import journal to the start's
// recovery, beside a few journaled copies: whatever the manifest says, no
// file outside the working directory is written or removed, a journal that
// was put back or dropped is gone, and a manifest that reads back formats to
// one that reads back the same.
#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "fuzz_workdir.h"
#include "platform/env.h"
#include "platform/file_tree.h"
#include "transfer/import_journal.h"

namespace {

using OxConfigMgr::transfer::JournalEntry;
using OxConfigMgr::transfer::JournalRecovery;

std::string g_dir;  // the working directory, ending in a separator

void inside(const std::string& path) {
  if (path.compare(0, g_dir.size(), g_dir) != 0 || path.find("/../") != std::string::npos) __builtin_trap();
}

// Traps on any change outside the working directory.
class ConfinedEnv : public OxBase::EnvWrapper {
 public:
  ConfinedEnv() : EnvWrapper(OxBase::Env::Current()) {}
  int Open(const std::string& p, int f, mode_t m) override {
    inside(p);
    return EnvWrapper::Open(p, f, m);
  }
  int Rename(const std::string& a, const std::string& b) override {
    inside(a);
    inside(b);
    return EnvWrapper::Rename(a, b);
  }
  int Unlink(const std::string& p) override {
    inside(p);
    return EnvWrapper::Unlink(p);
  }
  int MakeDir(const std::string& p, mode_t m) override {
    inside(p);
    return EnvWrapper::MakeDir(p, m);
  }
  int RemoveDir(const std::string& p) override {
    inside(p);
    return EnvWrapper::RemoveDir(p);
  }
};

bool setUp() {
  g_dir = oxfuzz::enterWorkDir("import-journal") + "/";
  static ConfinedEnv env;
  OxBase::Env::Install(&env);
  return true;
}

bool sameEntries(const std::vector<JournalEntry>& a, const std::vector<JournalEntry>& b) {
  if (a.size() != b.size()) return false;
  for (size_t i = 0; i < a.size(); ++i) {
    if (a[i].name != b[i].name || a[i].present != b[i].present) return false;
  }
  return true;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  static const bool ready = setUp();
  if (!ready) return 0;
  const std::string text(reinterpret_cast<const char*>(data), size);
  std::vector<JournalEntry> entries;
  if (OxConfigMgr::transfer::ParseJournalManifest(text, &entries)) {
    std::vector<JournalEntry> again;
    if (!OxConfigMgr::transfer::ParseJournalManifest(OxConfigMgr::transfer::FormatJournalManifest(entries), &again) ||
        !sameEntries(entries, again)) {
      __builtin_trap();
    }
  }
  const std::string folder = g_dir + OxConfigMgr::transfer::kImportJournalDir;
  OxBase::RemoveTree(folder);
  if (OxBase::Env::Current()->MakeDir(folder, 0700) != 0) return 0;
  oxfuzz::putFile((folder + "/manifest").c_str(), text);
  for (const char* copy : {"0", "1", "2"}) oxfuzz::putFile((folder + "/" + copy).c_str(), "<Config/>\n");
  const JournalRecovery r = OxConfigMgr::transfer::RecoverImportJournal(g_dir);
  if (r != JournalRecovery::kFailed && OxBase::InspectEntry(folder) != OxBase::EntryKind::kMissing) {
    __builtin_trap();
  }
  return 0;
}
