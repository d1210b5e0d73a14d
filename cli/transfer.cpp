// oxcfg: export and import of the whole configuration as a password-protected
// archive. The password is read from the terminal with echo off, or from
// standard input when that is not a terminal; never from an argument.
#include <oxconfigmgr/OxConfigMgr.h>

#include <unistd.h>

#include <cstdio>
#include <string>
#include <vector>

#include "cli/cli.h"
#include "cli/progress.h"
#include "cli/secret_input.h"
#include "platform/file_util.h"
#include "platform/secure_wipe.h"

namespace oxcfg {
namespace {

using namespace OxConfigMgr;

// Archive passwords: any bytes but the line end, up to this many; longer
// lines are refused rather than cut.
constexpr size_t kMaxPasswordBytes = 4096;

// Runs `use` with the password as the library takes it; that copy is wiped
// on return like the line it came from.
template <class F>
int withPassword(const SecretLine& line, F use) {
  std::string password(line.text, line.length);
  OxBase::ScopedWipe wipe(&password[0], password.size());
  return use(password);
}

std::string meaningOfImport(int code) {
  switch (code) {
    case IMPORT_NOT_LINUX_CONFIG: return "the archive was not made by a gateway of this platform";
    case IMPORT_FAILED: return "the live files could not be read or merged, or the database not replaced; "
                               "the XML files were put back";
    case IMPORT_UNPACK_FAILED: return "the archive could not be unpacked (wrong password, damaged or unsafe "
                                      "archive) or names no software version";
    case IMPORT_NEWER_VERSION: return "the archive comes from a newer software version";
    default: return "";
  }
}

RegisterCommand g_export({"export", "FILE",
                          "write the whole configuration to FILE as an AES-256 encrypted archive; the password "
                          "is read from the terminal (no echo) or standard input",
                          [](const std::vector<std::string>& args) {
                            if (args.size() != 1) return usageError("export takes the archive file to write");
                            auto transfer = OX_ConfigMgr_GetCfgImportAndExport();
                            if (!transfer) return usageError("import and export not started");
                            SecretLine password(kMaxPasswordBytes);
                            if (!readNewSecret("Archive password: ", "Retype archive password: ", password)) {
                              return usageError("no password read");
                            }
                            if (!linkArchiverInto(".")) std::fprintf(stderr, "oxcfg: no 7za found (install p7zip-full)\n");
                            std::string data;
                            int rc;
                            {
                              Progress progress("export");
                              rc = withPassword(password, [&](const std::string& p) {
                                return transfer->exportConfigData(data, p);
                              });
                            }
                            if (rc == EXPORT_OK &&
                                !OxBase::WriteFileAtomic(args[0], data, OxBase::FileMode::kSecret).ok()) {
                              std::perror(("oxcfg: cannot write " + args[0]).c_str());
                              return 1;
                            }
                            return reportResult("export", rc,
                                                "the archive could not be made (no 7za, a password it refuses "
                                                "such as an empty or a too long one, or unreadable files)");
                          }});

RegisterCommand g_import({"import", "FILE",
                          "apply the archive FILE (made by export); the password is read from the terminal "
                          "(no echo) or standard input",
                          [](const std::vector<std::string>& args) {
                            if (args.size() != 1) return usageError("import takes the archive file to apply");
                            auto transfer = OX_ConfigMgr_GetCfgImportAndExport();
                            if (!transfer) return usageError("import and export not started");
                            std::string data;
                            if (!OxBase::ReadWholeFile(args[0], &data, 1u << 30)) {
                              std::perror(("oxcfg: cannot read " + args[0]).c_str());
                              return 1;
                            }
                            SecretLine password(kMaxPasswordBytes);
                            if (!readSecret("Archive password: ", password)) return usageError("no password read");
                            if (!linkArchiverInto(".")) std::fprintf(stderr, "oxcfg: no 7za found (install p7zip-full)\n");
                            // The library takes the archive under this name and leaves it to us.
                            if (!OxBase::WriteFileAtomic("configurationIn.zip", data, OxBase::FileMode::kSecret)
                                     .ok()) {
                              std::perror("oxcfg: cannot write configurationIn.zip");
                              return 1;
                            }
                            int rc;
                            {
                              Progress progress("import");
                              rc = withPassword(password, [&](const std::string& p) {
                                return transfer->importConfigData(p);
                              });
                            }
                            unlink("configurationIn.zip");
                            return reportResult("import", rc, meaningOfImport(rc));
                          }});

}  // namespace

// The library runs the archiver "7za" of the working directory; this host
// links the system's there when the directory has none.
bool linkArchiverInto(const std::string& dir) {
  const std::string link = dir + "/7za";
  if (access(link.c_str(), X_OK) == 0) return true;
  for (const char* system : {"/usr/bin/7za", "/bin/7za", "/usr/local/bin/7za"}) {
    if (access(system, X_OK) == 0) {
      unlink(link.c_str());  // a dangling link
      if (symlink(system, link.c_str()) != 0) {
        std::perror("oxcfg: cannot link 7za");
        return false;
      }
      return true;
    }
  }
  return false;
}

}  // namespace oxcfg
