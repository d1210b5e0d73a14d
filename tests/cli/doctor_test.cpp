// oxcfg doctor on a directory the tool laid out and started (no findings)
// and on copies broken in each of the ways it checks: one finding each,
// exit status 1, and the directory unchanged by the check.
#include <sys/stat.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include <functional>
#include <map>
#include <string>
#include <vector>

#include "platform/env.h"
#include "platform/sqlite3do.h"
#include "support/test_support.h"
#include "cli/cli_support.h"

namespace {

using oxtest::CliRun;
using oxtest::readFile;
using oxtest::writeFile;

// Every entry below `dir` with its type, mode, size, modification time and
// content: a check that changes anything changes this text.
std::string snapshot(const std::string& dir, const std::string& rel = "") {
  std::string out;
  for (const auto& name : oxtest::listDir(rel.empty() ? dir : dir + "/" + rel)) {
    const std::string r = rel.empty() ? name : rel + "/" + name, p = dir + "/" + r;
    struct stat st;
    if (::lstat(p.c_str(), &st) != 0) continue;
    out += r + " " + std::to_string(st.st_mode) + " " + std::to_string(st.st_size) + " " +
           std::to_string(st.st_mtim.tv_sec) + "." + std::to_string(st.st_mtim.tv_nsec) + "\n";
    if (S_ISDIR(st.st_mode)) out += snapshot(dir, r);
    else if (S_ISREG(st.st_mode)) out += readFile(p) + "\n";
  }
  return out;
}

class DoctorTest : public oxtest::WorkDirTest {
 protected:
  void SetUp() override {
    WorkDirTest::SetUp();
    gw_ = path("gw");
    root_ = path("root");
    ASSERT_EQ(cli({"init", gw_}).status, 0);
    ASSERT_EQ(cli({"-C", gw_, "start"}).status, 0);
    ASSERT_EQ(cli({"-C", gw_, "cert", "selfsign", "--days", "365", "--country", "DE", "--cn", "gw.test"},
                  "key password\n")
                  .status,
              0);
    // A machine root of our own: the zone link is the machine's, which a
    // test may not touch.
    ASSERT_EQ(::mkdir(root_.c_str(), 0755), 0);
    for (const char* d : {"/etc", "/usr", "/usr/share", "/usr/share/zoneinfo", "/usr/share/zoneinfo/Etc"}) {
      ASSERT_EQ(::mkdir((root_ + d).c_str(), 0755), 0);
    }
    writeFile(root_ + "/usr/share/zoneinfo/Etc/UTC", std::string("TZif2") + std::string(40, '\0'));
    ASSERT_EQ(::symlink("/usr/share/zoneinfo/Etc/UTC", (root_ + "/etc/localtime").c_str()), 0);
  }

  CliRun cli(const std::vector<std::string>& args, const std::string& input = "") {
    return oxtest::runOxcfg(args, dir(), input);
  }
  CliRun doctor(bool json = false) {
    std::vector<std::string> args{"doctor", gw_, "--root", root_};
    if (json) args.push_back("--json");
    return cli(args);
  }
  // A second directory with its own database key and certificate key.
  std::string otherGateway() {
    const std::string other = path("other");
    EXPECT_EQ(cli({"init", other}).status, 0);
    EXPECT_EQ(cli({"-C", other, "start"}).status, 0);
    EXPECT_EQ(cli({"-C", other, "cert", "selfsign", "--country", "DE", "--cn", "o.test"}, "other pass\n").status, 0);
    return other;
  }

  std::string gw_, root_;
};

TEST_F(DoctorTest, GoodDirectoryHasNoFindingsAndStaysUnchanged) {
  const std::string before = snapshot(gw_);
  CliRun r = doctor();
  EXPECT_EQ(r.status, 0) << r.out << r.err;
  EXPECT_EQ(r.out, "doctor: " + gw_ + ": no findings\n");
  EXPECT_EQ(r.err, "");
  r = doctor(true);
  EXPECT_EQ(r.status, 0) << r.out << r.err;
  EXPECT_NE(r.out.find("\"ok\": true"), std::string::npos) << r.out;
  EXPECT_NE(r.out.find("\"findings\": []"), std::string::npos) << r.out;
  EXPECT_EQ(snapshot(gw_), before);
}

TEST_F(DoctorTest, FreshlyLaidOutDirectoryIsNotBroken) {
  const std::string fresh = path("fresh");
  ASSERT_EQ(cli({"init", fresh}).status, 0);
  const std::string before = snapshot(fresh);
  CliRun r = cli({"doctor", fresh, "--root", root_});
  EXPECT_EQ(r.status, 0) << r.out << r.err;
  EXPECT_NE(r.out.find("note: the databases are not created yet"), std::string::npos) << r.out;
  EXPECT_EQ(snapshot(fresh), before);
}

struct Breakage {
  const char* name;
  const char* check;    // the check tag of the one finding
  const char* message;  // part of its message
  std::function<void(DoctorTest&, const std::string& gw, const std::string& root)> breakIt;
};

class DoctorBrokenTest : public DoctorTest, public ::testing::WithParamInterface<Breakage> {
 public:
  std::string other() { return otherGateway(); }
};

void sql(const std::string& db, const std::string& statement) {
  Sqlite3DO::CBaseDBConn conn;
  ASSERT_TRUE(conn.OpenDB(db, nullptr, 0, false));
  ASSERT_TRUE(conn.Execute(statement));
}

void run(const std::vector<std::string>& argv) {
  OxBase::CommandResult r = OxBase::Env::Default()->Run(argv, "", "");
  ASSERT_EQ(r.exitCode, 0) << r.output;
}

const Breakage kBreakages[] = {
    {"MissingFile", "files", "QAPIConfig.xml: missing",
     [](DoctorTest&, const std::string& gw, const std::string&) { ::unlink((gw + "/QAPIConfig.xml").c_str()); }},
    {"UnparsableFile", "files", "does not parse",
     [](DoctorTest&, const std::string& gw, const std::string&) {
       writeFile(gw + "/ARCConfig.xml", "<Config><Protocol>");
     }},
    {"MissingSection", "sections", "lacks the section Maintain",
     [](DoctorTest&, const std::string& gw, const std::string&) {
       std::string text = readFile(gw + "/Config.xml");
       size_t a = text.find("<Maintain>"), b = text.find("</Maintain>");
       ASSERT_NE(a, std::string::npos);
       text.erase(a, b + 11 - a);
       writeFile(gw + "/Config.xml", text);
     }},
    {"LogPropertiesWithoutRootLogger", "sections", "log4j.rootLogger",
     [](DoctorTest&, const std::string& gw, const std::string&) {
       writeFile(gw + "/log4cxx.properties", "log4j.appender.file=org.apache.log4j.FileAppender\n");
     }},
    {"MissingDatabase", "database", "Syslog.db3: missing",
     [](DoctorTest&, const std::string& gw, const std::string&) { ::unlink((gw + "/Syslog.db3").c_str()); }},
    {"DatabaseOfAnotherKey", "database", "does not open with the storage key",
     [](DoctorTest& t, const std::string& gw, const std::string&) {
       const std::string other = static_cast<DoctorBrokenTest&>(t).other();
       writeFile(gw + "/Config.db3", readFile(other + "/Config.db3"));
       ::chmod((gw + "/Config.db3").c_str(), 0600);
     }},
    {"OldSchemaVersion", "database", "schema version 1.7.0.0, this software expects 1.8.0.0",
     [](DoctorTest&, const std::string& gw, const std::string&) {
       sql(gw + "/Syslog.db3", "update Unit set Value = '1.7.0.0' where Key = 'version';");
     }},
    {"SecretFileReadableByOthers", "mode", "mode 0644",
     [](DoctorTest&, const std::string& gw, const std::string&) {
       ::chmod((gw + "/PrivateConfig.xml").c_str(), 0644);
     }},
    {"LeftoverTemporaryFile", "leftover", "interrupted write",
     [](DoctorTest&, const std::string& gw, const std::string&) {
       writeFile(gw + "/.Config.xml.tmp.4242.1", "<Config>");
     }},
    {"BackupWaiting", "backup", "Config_Backup.xml: carry-over backup",
     [](DoctorTest&, const std::string& gw, const std::string&) {
       writeFile(gw + "/Config_Backup.xml", readFile(gw + "/Config.xml"));
     }},
    {"CertificateAboutToExpire", "certificate", "cert.pem: expires in ",
     [](DoctorTest&, const std::string& gw, const std::string&) {
       const std::string conf = gw + "/nginx/conf/";
       run({"openssl", "req", "-new", "-x509", "-days", "1", "-subj", "/CN=gw.test", "-key", conf + "cert.key",
            "-passin", "file:" + conf + "key.pass", "-out", conf + "cert.pem"});
     }},
    {"KeyOfAnotherCertificate", "certificate", "does not match the certificate",
     [](DoctorTest& t, const std::string& gw, const std::string&) {
       const std::string other = static_cast<DoctorBrokenTest&>(t).other();
       for (const char* f : {"/nginx/conf/cert.key", "/nginx/conf/key.pass"}) {
         writeFile(gw + f, readFile(other + f));
         ::chmod((gw + f).c_str(), 0600);
       }
     }},
    {"DanglingZoneLink", "zone", "does not exist",
     [](DoctorTest&, const std::string&, const std::string& root) {
       ::unlink((root + "/etc/localtime").c_str());
       ASSERT_EQ(::symlink("/usr/share/zoneinfo/Mars/Olympus", (root + "/etc/localtime").c_str()), 0);
     }},
    {"MissingArchiver", "7za", "7za: missing",
     [](DoctorTest&, const std::string& gw, const std::string&) { ::unlink((gw + "/7za").c_str()); }},
    {"OldArchiver", "7za", "version 9.04 cannot write AES-256",
     [](DoctorTest&, const std::string& gw, const std::string&) {
       ::unlink((gw + "/7za").c_str());
       writeFile(gw + "/7za", "#!/bin/sh\necho '7-Zip (A) 9.04 beta  Copyright (c) 1999-2009 Igor Pavlov'\n");
       ::chmod((gw + "/7za").c_str(), 0755);
     }},
};

TEST_P(DoctorBrokenTest, ReportsOneFindingAndChangesNothing) {
  const Breakage& b = GetParam();
  b.breakIt(*this, gw_, root_);
  if (HasFatalFailure()) return;
  const std::string before = snapshot(gw_);
  CliRun r = doctor();
  EXPECT_EQ(r.status, 1) << r.out << r.err;
  std::vector<std::string> findings;
  size_t pos = 0;
  while (pos < r.out.size()) {
    size_t end = r.out.find('\n', pos);
    std::string line = r.out.substr(pos, end - pos);
    if (line.compare(0, 5, "note:") != 0) findings.push_back(line);
    pos = end + 1;
  }
  ASSERT_EQ(findings.size(), 1u) << r.out;
  EXPECT_EQ(findings[0].compare(0, std::string(b.check).size() + 2, std::string(b.check) + ": "), 0) << findings[0];
  EXPECT_NE(findings[0].find(b.message), std::string::npos) << findings[0];
  EXPECT_NE(r.err.find(": 1 finding"), std::string::npos) << r.err;

  r = doctor(true);
  EXPECT_EQ(r.status, 1);
  EXPECT_NE(r.out.find("\"ok\": false"), std::string::npos) << r.out;
  EXPECT_NE(r.out.find(std::string("{\"check\": \"") + b.check + "\""), std::string::npos) << r.out;
  EXPECT_EQ(snapshot(gw_), before);
}

INSTANTIATE_TEST_SUITE_P(Doctor, DoctorBrokenTest, ::testing::ValuesIn(kBreakages),
                         [](const ::testing::TestParamInfo<Breakage>& info) { return info.param.name; });

TEST_F(DoctorTest, UsageErrors) {
  EXPECT_EQ(cli({"doctor", path("nowhere")}).status, 2);
  EXPECT_EQ(cli({"doctor", gw_, "--bogus"}).status, 2);
}

}  // namespace
