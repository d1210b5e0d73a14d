// oxcfg: export and import of the whole configuration as a password-protected
// archive. The password is read from the terminal with echo off, or from
// standard input when that is not a terminal; never from an argument.
#include <oxconfigmgr/OxConfigMgr.h>

#include <string.h>
#include <termios.h>
#include <unistd.h>

#include <cstdio>
#include <string>
#include <vector>

#include "cli/cli.h"
#include "cli/progress.h"
#include "platform/file_util.h"
#include "platform/secure_wipe.h"

namespace oxcfg {
namespace {

using namespace OxConfigMgr;

// Longer lines are refused rather than cut.
constexpr size_t kMaxPasswordBytes = 4096;

// A password that is wiped when it goes; any bytes but the line end.
class Password {
 public:
  Password() { text_.reserve(kMaxPasswordBytes + 1); }
  ~Password() { OxBase::SecureWipe(text_); }
  Password(const Password&) = delete;
  Password& operator=(const Password&) = delete;
  std::string& text() { return text_; }

 private:
  std::string text_;
};

// One line of `in` without its line end; false at end of input before any
// byte, or when the line is too long.
bool readLine(FILE* in, Password& out) {
  std::string& s = out.text();
  s.clear();
  int c;
  bool any = false;
  while ((c = std::fgetc(in)) != EOF) {
    any = true;
    if (c == '\n') break;
    if (s.size() == kMaxPasswordBytes) return false;
    s.push_back(static_cast<char>(c));
  }
  if (!s.empty() && s.back() == '\r') s.pop_back();
  return any;
}

bool readHidden(const char* prompt, Password& out) {
  termios saved;
  bool restore = tcgetattr(STDIN_FILENO, &saved) == 0;
  if (restore) {
    termios quiet = saved;
    quiet.c_lflag &= static_cast<tcflag_t>(~(ECHO | ECHONL));
    tcsetattr(STDIN_FILENO, TCSAFLUSH, &quiet);
  }
  // The prompt shows once echo is off: an answer typed (or sent) after it
  // is neither echoed nor flushed away.
  std::fprintf(stderr, "%s", prompt);
  std::fflush(stderr);
  bool ok = readLine(stdin, out);
  if (restore) tcsetattr(STDIN_FILENO, TCSAFLUSH, &saved);
  std::fprintf(stderr, "\n");
  return ok;
}

// Reads the archive password; on a terminal a new one is asked twice.
bool readPassword(bool confirm, Password& out) {
  if (!isatty(STDIN_FILENO)) return readLine(stdin, out);
  if (!readHidden("Archive password: ", out)) return false;
  if (!confirm) return true;
  Password again;
  if (!readHidden("Retype archive password: ", again)) return false;
  if (out.text() != again.text()) {
    std::fprintf(stderr, "oxcfg: the passwords do not match\n");
    return false;
  }
  return true;
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
                            Password password;
                            if (!readPassword(true, password)) return usageError("no password read");
                            if (!linkArchiverInto(".")) std::fprintf(stderr, "oxcfg: no 7za found (install p7zip-full)\n");
                            std::string data;
                            int rc;
                            {
                              Progress progress("export");
                              rc = transfer->exportConfigData(data, password.text());
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
                            Password password;
                            if (!readPassword(false, password)) return usageError("no password read");
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
                              rc = transfer->importConfigData(password.text());
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
