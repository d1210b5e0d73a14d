// oxcfg doctor: says what is wrong with a working directory, without
// changing it.
//
// Read-only by construction: the directory is never the working directory
// of this process (so nothing the library does can land there), files are
// only opened for reading, and the two steps that may write (loading the
// private configuration to learn the database key, and opening a database,
// which rolls back a journal left by a killed writer) run on copies in a
// private temporary directory that is removed afterwards.
#include <dirent.h>
#include <sys/stat.h>
#include <unistd.h>

#include <openssl/bio.h>
#include <openssl/evp.h>
#include <openssl/pem.h>
#include <openssl/x509.h>

#include <oxconfigmgr/OxConfigMgr.h>

#include <cctype>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <memory>
#include <string>
#include <vector>

#include "cli/cli.h"
#include "db/db_init.h"
#include "platform/env.h"
#include "platform/file_util.h"
#include "platform/secure_wipe.h"
#include "platform/sqlite3do.h"
#include "platform/xlog.h"
#include "platform/xml_base.h"

namespace oxcfg {
namespace {

// A certificate that ends within this many days is reported, so it can be
// replaced before clients refuse it.
constexpr int kCertWarnDays = 30;
// The first 7za release that writes AES-256 ZIP archives.
constexpr int kMin7zaMajor = 9, kMin7zaMinor = 20;

struct Finding {
  std::string check;  // files, sections, database, mode, leftover, backup, certificate, zone, 7za
  std::string path;
  std::string message;
};

// Every XML file the library reads, with its root and the sections the
// library needs in it.
struct XmlFile {
  const char* name;
  const char* root;
  std::vector<const char*> sections;
};

const std::vector<XmlFile>& xmlFiles() {
  static const std::vector<XmlFile> files = {
      {"Config.xml",
       "Config",
       {"BasicInfo", "Network", "NATGateway", "Maintain", "EventSubCfg", "MetadataCfg", "WispListenCfg",
        "HttpHostNotificationList", "DeviceMgmt", "AlarmMonitor"}},
      {"PrivateConfig.xml", "PrivateConfig", {"LDM", "HTTPService", "WebSocketService", "Encrypt",
                                              "InternalCommunication"}},
      {"QAPIConfig.xml", "Config", {"QAPIConfig"}},
      {"ARCConfig.xml", "Config", {"Protocol", "SGConfig", "A685Config", "ManitouConfig", "SBNConfig"}},
      {"ConvertCodeConfig.xml", "ConvertCodeConfig", {"NyxCodeToSGConfig", "PollEventToCIDConfig"}},
  };
  return files;
}

const char* const kSecretFiles[] = {"PrivateConfig.xml", "Config.db3", "Syslog.db3", "nginx/conf/cert.key",
                                    "nginx/conf/key.pass"};

struct BioDeleter {
  void operator()(BIO* b) const { BIO_free(b); }
};
struct X509Deleter {
  void operator()(X509* x) const { X509_free(x); }
};
struct PkeyDeleter {
  void operator()(EVP_PKEY* k) const { EVP_PKEY_free(k); }
};

std::string octal(mode_t mode) {
  char buf[16];
  std::snprintf(buf, sizeof buf, "%04o", static_cast<unsigned>(mode & 07777));
  return buf;
}

bool exists(const std::string& path) {
  struct stat st;
  return ::lstat(path.c_str(), &st) == 0;
}

// Removes the doctor's own temporary directory (flat: files only).
void removeTree(const std::string& dir) {
  if (DIR* d = ::opendir(dir.c_str())) {
    while (dirent* e = ::readdir(d)) {
      std::string name = e->d_name;
      if (name != "." && name != "..") ::unlink((dir + "/" + name).c_str());
    }
    ::closedir(d);
  }
  ::rmdir(dir.c_str());
}

class Doctor {
 public:
  Doctor(std::string dir, std::string root) : dir_(std::move(dir)), root_(std::move(root)) {}
  ~Doctor() {
    if (!scratch_.empty()) removeTree(scratch_);
  }

  void run() {
    checkXmlFiles();
    checkLogProperties();
    checkModes();
    checkLeftovers();
    checkBackups();
    checkDatabases();
    checkCertificate();
    checkZoneLink();
    checkArchiver();
  }

  const std::vector<Finding>& findings() const { return findings_; }
  const std::vector<std::string>& notes() const { return notes_; }
  const std::string& archiverVersion() const { return archiverVersion_; }

 private:
  std::string at(const std::string& rel) const { return dir_ + "/" + rel; }
  void add(const std::string& check, const std::string& path, const std::string& message) {
    findings_.push_back({check, path, message});
  }

  void checkXmlFiles() {
    for (const XmlFile& f : xmlFiles()) {
      const std::string path = at(f.name);
      if (!exists(path)) {
        add("files", path, "missing");
        continue;
      }
      OxBase::CXmlBase xml;
      if (xml.LoadFile(path) != 1) {
        add("files", path, "does not parse as XML (or is larger than 16 MiB)");
        continue;
      }
      if (!xml.FindElem(f.root) || !xml.IntoElem()) {
        add("sections", path, std::string("has no root element ") + f.root);
        continue;
      }
      for (const char* section : f.sections) {
        if (!xml.FindElem(section)) add("sections", path, std::string("lacks the section ") + section);
      }
    }
  }

  void checkLogProperties() {
    const std::string path = at("log4cxx.properties");
    std::string text;
    if (!exists(path)) {
      add("files", path, "missing");
      return;
    }
    if (!OxBase::ReadWholeFile(path, &text, 1u << 20)) {
      add("files", path, "cannot be read");
      return;
    }
    // The maintenance settings rewrite the root logger line; it must exist.
    size_t pos = 0;
    while (pos < text.size()) {
      size_t end = text.find('\n', pos);
      if (end == std::string::npos) end = text.size();
      size_t b = text.find_first_not_of(" \t", pos);
      if (b < end && text.compare(b, 17, "log4j.rootLogger=") == 0) return;
      pos = end + 1;
    }
    add("sections", path, "lacks the log4j.rootLogger line");
  }

  void checkModes() {
    for (const char* rel : kSecretFiles) {
      struct stat st;
      if (::stat(at(rel).c_str(), &st) != 0) continue;
      if ((st.st_mode & 077) != 0) {
        add("mode", at(rel), "mode " + octal(st.st_mode) + ", a file holding secrets must be 0600");
      }
    }
  }

  void checkLeftovers() {
    for (const std::string& sub : {std::string(), std::string("nginx/conf")}) {
      const std::string folder = sub.empty() ? dir_ : at(sub);
      DIR* d = ::opendir(folder.c_str());
      if (!d) continue;
      while (dirent* e = ::readdir(d)) {
        std::string name = e->d_name;
        // ".<name>.tmp.<pid>.<n>": a write that never reached its rename.
        if (name.size() > 1 && name[0] == '.' && name.find(".tmp.") != std::string::npos) {
          add("leftover", folder + "/" + name, "temporary file of an interrupted write");
        }
      }
      ::closedir(d);
    }
    struct stat st;
    if (::stat(at("configuration").c_str(), &st) == 0 && S_ISDIR(st.st_mode)) {
      add("leftover", at("configuration"), "staging folder of an interrupted import or export");
    }
  }

  void checkBackups() {
    for (const XmlFile& f : xmlFiles()) {
      std::string name = f.name;
      name.insert(name.size() - 4, "_Backup");
      if (exists(at(name))) {
        add("backup", at(name), "carry-over backup of an upgrade, not yet consumed (the next start merges it)");
      }
    }
  }

  // A copy of `rel` in the scratch directory; empty when it cannot be made.
  std::string copyToScratch(const std::string& rel) {
    if (scratch_.empty()) {
      const char* tmp = std::getenv("TMPDIR");
      std::string tmpl = std::string(tmp && *tmp ? tmp : "/tmp") + "/oxcfg-doctor-XXXXXX";
      std::vector<char> buf(tmpl.begin(), tmpl.end());
      buf.push_back('\0');
      if (!::mkdtemp(buf.data())) return "";
      scratch_ = buf.data();
    }
    std::string data;
    const std::string to = scratch_ + "/" + rel.substr(rel.rfind('/') + 1);
    if (!OxBase::ReadWholeFile(at(rel), &data, 1u << 30)) return "";
    if (!OxBase::WriteFileAtomic(to, data, OxBase::FileMode::kSecret).landed()) return "";
    return to;
  }

  bool hasStorageKey() {
    OxBase::CXmlBase xml;
    return xml.LoadFile(at("PrivateConfig.xml")) == 1 && xml.FindElem("PrivateConfig") && xml.IntoElem() &&
           xml.FindElem("Encrypt") && xml.IntoElem() && xml.FindElem("Storage");
  }

  // The version row of an opened database, compared with what this
  // software expects.
  void checkVersion(Sqlite3DO::CBaseDBConn& conn, const std::string& path, const Sqlite3DO::CDBVersion& target,
                    const std::string& targetText) {
    Sqlite3DO::CSQLite3Recordset rs;
    if (!conn.Execute("select Value from Unit where Key = 'version';", rs) || rs.IsEOF()) {
      add("database", path, "has no schema version (table Unit, key version)");
      return;
    }
    const std::string version = rs.GetString("Value");
    Sqlite3DO::CDBVersion found(version);
    if (!found.IsValid() || found != target) {
      add("database", path, "schema version " + version + ", this software expects " + targetText);
    }
  }

  void checkDatabases() {
    const bool config = exists(at("Config.db3")), syslog = exists(at("Syslog.db3"));
    const bool storageKey = hasStorageKey();
    if (!config && !syslog && !storageKey) {
      notes_.push_back("the databases are not created yet: the first start creates them");
      return;
    }
    const std::string target = "1.8.0.0";
    if (!syslog) {
      add("database", at("Syslog.db3"), "missing");
    } else {
      const std::string copy = copyToScratch("Syslog.db3");
      Sqlite3DO::CBaseDBConn conn;
      if (copy.empty()) {
        add("database", at("Syslog.db3"), "cannot be read");
      } else if (!conn.OpenDB(copy, nullptr, 0, false)) {
        add("database", at("Syslog.db3"), "does not open as a database");
      } else {
        checkVersion(conn, at("Syslog.db3"), OxConfigMgr::CSyslogDBInitManager::Instance()->GetDBTargetVersion(),
                     target);
      }
    }
    if (!config) {
      add("database", at("Config.db3"), "missing");
      return;
    }
    if (!storageKey) {
      add("database", at("Config.db3"), "cannot be opened: PrivateConfig.xml holds no storage key");
      return;
    }
    // The key is the private configuration's storage key, deciphered by the
    // library from a copy of the directory's own files.
    const std::string priv = copyToScratch("PrivateConfig.xml");
    for (const char* keyFile : {"wbaes_key_enc", "wbaes_key_dec"}) {
      if (exists(at(keyFile))) copyToScratch(keyFile);
    }
    const std::string copy = copyToScratch("Config.db3");
    if (priv.empty() || copy.empty()) {
      add("database", at("Config.db3"), "cannot be read");
      return;
    }
    unsigned char key[32];
    OxBase::ScopedWipe wipeKey(key, sizeof key);
    {
      char here[4096];
      const bool saved = ::getcwd(here, sizeof here) != nullptr;
      if (::chdir(scratch_.c_str()) != 0) {
        add("database", at("Config.db3"), "cannot be checked (no scratch directory)");
        return;
      }
      OxConfigMgr::CPrivateCfg cfg;
      const bool loaded = cfg.loadFile();
      OxConfigMgr::tagEncryptInfo info;
      OxBase::ScopedWipe wipeInfo(&info, sizeof info);
      cfg.getEncryptParams(info);
      std::memcpy(key, info.storageKey, sizeof key);
      if (saved && ::chdir(here) != 0) {
        // The remaining checks use absolute paths.
      }
      if (!loaded) {
        add("database", at("Config.db3"), "cannot be opened: PrivateConfig.xml does not load");
        return;
      }
    }
    Sqlite3DO::CBaseDBConn conn;
    if (!conn.OpenDB(copy, key, sizeof key, true)) {
      add("database", at("Config.db3"), "does not open with the storage key of PrivateConfig.xml");
      return;
    }
    checkVersion(conn, at("Config.db3"), OxConfigMgr::CGatewayDBInitManager::Instance()->GetDBTargetVersion(),
                 target);
  }

  void checkCertificate() {
    const std::string certPath = at("nginx/conf/cert.pem"), keyPath = at("nginx/conf/cert.key");
    if (!exists(certPath)) {
      notes_.push_back("no certificate installed (nginx/conf/cert.pem)");
      return;
    }
    std::string pem;
    if (!OxBase::ReadWholeFile(certPath, &pem, 1u << 20)) {
      add("certificate", certPath, "cannot be read");
      return;
    }
    std::unique_ptr<BIO, BioDeleter> bio(BIO_new_mem_buf(pem.data(), static_cast<int>(pem.size())));
    std::unique_ptr<X509, X509Deleter> cert(bio ? PEM_read_bio_X509(bio.get(), nullptr, nullptr, nullptr) : nullptr);
    if (!cert) {
      add("certificate", certPath, "is not a PEM certificate");
      return;
    }
    const time_t now = std::time(nullptr);
    int days = 0, seconds = 0;
    if (X509_cmp_time(X509_get0_notBefore(cert.get()), const_cast<time_t*>(&now)) > 0) {
      add("certificate", certPath, "is not valid yet");
    }
    if (X509_cmp_time(X509_get0_notAfter(cert.get()), const_cast<time_t*>(&now)) < 0) {
      add("certificate", certPath, "has expired");
    } else if (ASN1_TIME_diff(&days, &seconds, nullptr, X509_get0_notAfter(cert.get())) == 1 &&
               days < kCertWarnDays) {
      add("certificate", certPath, "expires in " + std::to_string(days) + (days == 1 ? " day" : " days"));
    }
    if (!exists(keyPath)) {
      add("certificate", keyPath, "missing: the certificate has no key");
      return;
    }
    std::string keyPem, pass;
    if (!OxBase::ReadWholeFile(keyPath, &keyPem, 1u << 20)) {
      add("certificate", keyPath, "cannot be read");
      return;
    }
    if (exists(at("nginx/conf/key.pass")) && !OxBase::ReadWholeFile(at("nginx/conf/key.pass"), &pass, 4096)) {
      add("certificate", at("nginx/conf/key.pass"), "cannot be read");
    }
    while (!pass.empty() && (pass.back() == '\n' || pass.back() == '\r')) pass.pop_back();
    std::unique_ptr<BIO, BioDeleter> keyBio(BIO_new_mem_buf(keyPem.data(), static_cast<int>(keyPem.size())));
    std::unique_ptr<EVP_PKEY, PkeyDeleter> key(
        keyBio ? PEM_read_bio_PrivateKey(keyBio.get(), nullptr, nullptr, const_cast<char*>(pass.c_str())) : nullptr);
    OxBase::SecureWipe(pass);
    OxBase::SecureWipe(keyPem);
    if (!key) {
      add("certificate", keyPath, "cannot be read with the password of key.pass");
      return;
    }
    if (X509_check_private_key(cert.get(), key.get()) != 1) {
      add("certificate", keyPath, "does not match the certificate");
    }
  }

  void checkZoneLink() {
    const std::string base = root_ == "/" ? "" : root_;
    const std::string link = base + "/etc/localtime";
    struct stat st;
    if (::lstat(link.c_str(), &st) != 0) {
      add("zone", link, "missing: the machine has no time zone");
      return;
    }
    std::string target = link;
    if (S_ISLNK(st.st_mode)) {
      char buf[4096];
      ssize_t n = ::readlink(link.c_str(), buf, sizeof buf - 1);
      if (n <= 0) {
        add("zone", link, "cannot be read");
        return;
      }
      std::string to(buf, static_cast<size_t>(n));
      target = to[0] == '/' ? base + to : base + "/etc/" + to;
      if (to.find("zoneinfo/") == std::string::npos) {
        add("zone", link, "points to " + to + ", outside the zone files");
        return;
      }
      if (::stat(target.c_str(), &st) != 0) {
        add("zone", link, "points to " + to + ", which does not exist");
        return;
      }
    } else {
      notes_.push_back(link + " is a file, not a link into the zone files");
    }
    std::string head;
    FILE* f = std::fopen(target.c_str(), "rb");
    if (f) {
      char magic[4] = {0};
      if (std::fread(magic, 1, 4, f) == 4) head.assign(magic, 4);
      std::fclose(f);
    }
    if (head != "TZif") add("zone", link, "does not lead to a zone file");
  }

  void checkArchiver() {
    const std::string path = at("7za");
    if (!exists(path)) {
      add("7za", path, "missing: export and import run the directory's 7za (oxcfg init links the system's)");
      return;
    }
    if (::access(path.c_str(), X_OK) != 0) {
      add("7za", path, "not executable (or a dangling link)");
      return;
    }
    OxBase::CommandResult r = OxBase::Env::Default()->Run({path}, "", scratchOrTmp());
    // "7-Zip (a) [64] 16.02 : Copyright ..." and similar banners.
    size_t at7 = r.output.find("7-Zip");
    if (r.exitCode < 0 || at7 == std::string::npos) {
      add("7za", path, "does not answer as 7-Zip");
      return;
    }
    int major = -1, minor = -1;
    for (size_t i = at7 + 5; i < r.output.size() && r.output[i] != '\n'; ++i) {
      if (std::isdigit(static_cast<unsigned char>(r.output[i])) &&
          std::sscanf(r.output.c_str() + i, "%d.%d", &major, &minor) == 2) {
        break;
      }
      major = minor = -1;
    }
    if (major < 0) {
      add("7za", path, "names no version");
      return;
    }
    char v[32];
    std::snprintf(v, sizeof v, "%d.%02d", major, minor);
    archiverVersion_ = v;
    if (major < kMin7zaMajor || (major == kMin7zaMajor && minor < kMin7zaMinor)) {
      add("7za", path, std::string("version ") + v + " cannot write AES-256 archives (9.20 or later needed)");
    }
  }

  // 7za runs outside the checked directory, so it cannot leave anything there.
  std::string scratchOrTmp() const { return scratch_.empty() ? "/" : scratch_; }

  std::string dir_, root_, scratch_;
  std::vector<Finding> findings_;
  std::vector<std::string> notes_;
  std::string archiverVersion_;
};

int cmdDoctor(const std::vector<std::string>& args) {
  std::string dir, root = "/";
  for (size_t i = 0; i < args.size(); ++i) {
    if (args[i] == "--root" && i + 1 < args.size()) root = args[++i];
    else if (dir.empty() && args[i].compare(0, 1, "-") != 0) dir = args[i];
    else return usageError("doctor takes [DIR] [--root ROOT]");
  }
  char cwd[4096];
  if (!::getcwd(cwd, sizeof cwd)) return usageError("cannot tell the current directory");
  if (dir.empty()) dir = cwd;
  if (dir[0] != '/') dir = std::string(cwd) + "/" + dir;
  if (root[0] != '/') root = std::string(cwd) + "/" + root;
  struct stat st;
  if (::stat(dir.c_str(), &st) != 0 || !S_ISDIR(st.st_mode)) {
    return usageError("no directory " + dir);
  }
  // Whatever the library logs while checking goes nowhere: in particular no
  // log file may appear in the checked directory.
  if (::chdir("/") == 0) xlog_configure_from_cwd();
  Doctor doctor(dir, root);
  doctor.run();
  if (::chdir(cwd) != 0) {
    // Nothing later depends on the current directory.
  }
  const auto& findings = doctor.findings();
  if (jsonOutput()) {
    std::printf("{\n  \"directory\": %s,\n  \"ok\": %s,\n  \"7za\": %s,\n  \"findings\": [", jsonString(dir).c_str(),
                findings.empty() ? "true" : "false", jsonString(doctor.archiverVersion()).c_str());
    for (size_t i = 0; i < findings.size(); ++i) {
      std::printf("%s\n    {\"check\": %s, \"path\": %s, \"message\": %s}", i ? "," : "",
                  jsonString(findings[i].check).c_str(), jsonString(findings[i].path).c_str(),
                  jsonString(findings[i].message).c_str());
    }
    std::printf("%s],\n  \"notes\": [", findings.empty() ? "" : "\n  ");
    for (size_t i = 0; i < doctor.notes().size(); ++i) {
      std::printf("%s%s", i ? ", " : "", jsonString(doctor.notes()[i]).c_str());
    }
    std::printf("]\n}\n");
  } else {
    for (const auto& f : findings) std::printf("%s: %s: %s\n", f.check.c_str(), f.path.c_str(), f.message.c_str());
    for (const auto& n : doctor.notes()) std::printf("note: %s\n", n.c_str());
    if (findings.empty()) std::printf("doctor: %s: no findings\n", dir.c_str());
    else std::fprintf(stderr, "doctor: %s: %zu finding%s\n", dir.c_str(), findings.size(),
                      findings.size() == 1 ? "" : "s");
  }
  return findings.empty() ? kExitOk : kExitRefused;
}

RegisterBuiltin g_doctor(
    {"doctor", "[DIR] [--root ROOT]",
     "check DIR (default: the working directory) without changing it and print one line per finding: files "
     "present, parsed and with their sections; both databases open (Config.db3 with the directory's key) at the "
     "expected schema version; secret files 0600; leftover temporary files; carry-over backups not yet consumed; "
     "the certificate's expiry and its key; the zone link ROOT/etc/localtime (ROOT default /); the 7za and its "
     "version. Exit status 1 when anything is found",
     cmdDoctor});

}  // namespace
}  // namespace oxcfg
