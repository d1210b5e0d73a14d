#include <sys/stat.h>
#include <unistd.h>

#include <oxconfigmgr/OxUserCfg.h>

#include <oxconfigmgr/OxNetworkCfg.h>

#include <chrono>
#include <functional>
#include <thread>

#include "transfer/transfer_fixture.h"

namespace oxtest {
namespace {

using OxConfigMgr::CCfgImportAndExport;

class ImportTest : public TransferTest {
 protected:
  // This gateway's export, edited by `edit` (given the unpacked staging
  // folder) and packed again with `password`.
  std::string craftedArchive(const std::function<void(const std::string& staging)>& edit,
                             const std::string& password = "pw", bool aes = true) {
    const std::string work = path("craft");
    exportUnpacked(password, work);
    edit(work + "/configuration");
    std::string archive = pack(work, password, aes);
    runCommand({"rm", "-rf", work});
    return archive;
  }
  // An unencrypted archive with the exported files and `extra` entries.
  std::string plainArchive(const std::vector<ZipItem>& extra) {
    const std::string work = path("plain");
    exportUnpacked("pw", work);
    std::vector<ZipItem> items = {{"configuration/", "", 040755}};
    for (const auto& name : listDir(work + "/configuration")) {
      items.push_back({"configuration/" + name, readFile(work + "/configuration/" + name)});
    }
    items.insert(items.end(), extra.begin(), extra.end());
    runCommand({"rm", "-rf", work});
    return makeZip(items);
  }

  void expectNothingChanged(const std::vector<std::string>& before) {
    EXPECT_EQ(xmlState(), before);
    EXPECT_FALSE(stagingLeft());
    EXPECT_TRUE(log_.has(3, "importConfigData succ."));
  }
};

TEST_F(ImportTest, OwnArchiveImportsAndLeavesTheUploadToTheCaller) {
  EXPECT_FALSE(OX_ConfigMgr_GetCfgImportAndExport());
  start();
  EXPECT_EQ(OX_ConfigMgr_GetCfgImportAndExport().get(), OX_ConfigMgr_GetCfgImportAndExport().get());
  std::string archive = exportArchive("pw");
  EXPECT_EQ(importArchive(archive, "pw"), 0);
  EXPECT_TRUE(log_.has(3, "LinuxConfig.xml file is exist."));
  EXPECT_TRUE(log_.has(3, "CCfgImportAndExport importXMLCfg succ."));
  EXPECT_TRUE(log_.has(3, "importConfigData succ."));
  EXPECT_FALSE(stagingLeft());
  EXPECT_TRUE(fileExists(path("configurationIn.zip")));
}

TEST_F(ImportTest, LegacyEncryptionAndNoEncryptionAreUnpackedLikeAes) {
  start();
  EXPECT_EQ(importArchive(craftedArchive([](const std::string&) {}, "legacy", false), "legacy"), 0);
  EXPECT_EQ(importArchive(plainArchive({}), "any password"), 0);
  EXPECT_FALSE(stagingLeft());
}

struct VersionCase {
  const char* current;
  const char* archived;
  int result;
};

TEST_F(ImportTest, NewerArchivesAreRefusedByPlainTextComparison) {
  start();
  const VersionCase cases[] = {
      {"V1.3.1.0", "V1.3.2.0", 275},
      {"V1.3.2.0", "V1.3.1.0", 0},
      {"V1.3.1.0", "V1.3.1.0", 0},
      // "V1.10" sorts before "V1.9" as text.
      {"V1.10", "V1.9", 275},
      {"V1.9", "V1.10", 0},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(std::string(c.current) + " <- " + c.archived);
    std::string archive = craftedArchive([&](const std::string& s) {
      ASSERT_TRUE(setXmlText(s + "/Config.xml", {"Config", "BasicInfo", "SoftwareVersion"}, c.archived));
      ASSERT_TRUE(setXmlText(s + "/Config.xml", {"Config", "Network", "HTTP", "Port"}, "8099"));
    });
    ASSERT_TRUE(setXmlText(path("Config.xml"), {"Config", "BasicInfo", "SoftwareVersion"}, c.current));
    ASSERT_TRUE(setXmlText(path("Config.xml"), {"Config", "Network", "HTTP", "Port"}, "80"));
    const auto before = xmlState();
    EXPECT_EQ(importArchive(archive, "pw"), c.result);
    if (c.result == 275) {
      EXPECT_TRUE(log_.has(4, std::string("import ConfigData Version is Mismatch.[current Version:") + c.current +
                                  ", cfg Version:" + c.archived + "]"));
      expectNothingChanged(before);
    } else {
      EXPECT_EQ(xmlText(path("Config.xml"), {"Config", "Network", "HTTP", "Port"}), "8099");
      // The file keeps naming the running software.
      EXPECT_EQ(xmlText(path("Config.xml"), {"Config", "BasicInfo", "SoftwareVersion"}), c.current);
    }
  }
}

TEST_F(ImportTest, AddressListIsRebuiltFromTheArchiveEntryForEntry) {
  start();
  // Fields each entry may lack, foreign elements interleaved and trailing.
  const char* const list =
      "<AddrList>"
      "<Addr><V4><IP>10.1.1.1</IP><ExternalIP>203.0.113.1</ExternalIP><DeviceExternal>203.0.113.2</DeviceExternal>"
      "</V4><Protocol>lumen/QAPI</Protocol></Addr>"
      "<Note>ignored</Note>"
      "<Addr><V4><IP>10.1.1.2</IP><Other>x</Other></V4></Addr>"
      "<Addr><Protocol>SDK</Protocol><V4><ExternalIP>203.0.113.3</ExternalIP></V4></Addr>"
      "<Addr/>"
      "<Trailer/>"
      "</AddrList>";
  const char* const expected =
      "<AddrList>"
      "<Addr><V4><IP>10.1.1.1</IP><ExternalIP>203.0.113.1</ExternalIP><DeviceExternal>203.0.113.2</DeviceExternal>"
      "</V4><Protocol>lumen/QAPI</Protocol></Addr>"
      "<Addr><V4><IP>10.1.1.2</IP></V4></Addr>"
      "<Addr><V4><ExternalIP>203.0.113.3</ExternalIP></V4><Protocol>SDK</Protocol></Addr>"
      "<Addr><V4/></Addr>"
      "</AddrList>";
  std::string archive = craftedArchive([&](const std::string& s) {
    OxBase::CXmlBase xml, replacement;
    ASSERT_EQ(xml.LoadFile(s + "/Config.xml"), 1);
    ASSERT_TRUE(OxConfigMgr::xmlWalk(xml, {"Config", "Network", "AddrList"}));
    ASSERT_TRUE(xml.RemoveNode());
    ASSERT_EQ(replacement.Parse(list), 1);
    ASSERT_TRUE(OxConfigMgr::xmlWalk(xml, {"Config", "Network"}));
    ASSERT_TRUE(xml.AddNode(replacement));
    ASSERT_EQ(xml.WriteToFile(s + "/Config.xml"), 1);
  });
  ASSERT_EQ(importArchive(archive, "pw"), 0);
  OxBase::CXmlBase live, want;
  ASSERT_EQ(live.LoadFile(path("Config.xml")), 1);
  ASSERT_TRUE(OxConfigMgr::xmlWalk(live, {"Config", "Network", "AddrList"}));
  ASSERT_EQ(want.Parse(expected), 1);
  ASSERT_TRUE(want.SetRoot());
  EXPECT_EQ(live.GetElemXml(), want.GetElemXml());
}

// Archives that cannot be taken: each gives its code, logs its line and
// leaves the three XML files as they were, with no staging folder left.
TEST_F(ImportTest, RefusedArchivesGiveTheirCodeAndChangeNothing) {
  start();
  const std::string good = exportArchive("pw");
  std::string random(4096, '\0');
  for (size_t i = 0; i < random.size(); ++i) random[i] = static_cast<char>((i * 2654435761u) >> 13);
  auto withConfig = [&](const char* content) {
    return craftedArchive([&](const std::string& s) { writeFile(s + "/Config.xml", content); });
  };
  // A new port, and `name` (when given) replaced by garbage.
  auto withGarbage = [&](const char* name) {
    return craftedArchive([&](const std::string& s) {
      ASSERT_TRUE(setXmlText(s + "/Config.xml", {"Config", "Network", "HTTP", "Port"}, "8077"));
      if (name) writeFile(s + "/" + name, "\x01\x02 not xml");
    });
  };
  const struct {
    const char* what;
    std::string archive;
    const char* password;
    int code;
    const char* message;  // logged at level 4 (code 1) or 5; null: none asked for
  } rows[] = {
      {"wrong password", withGarbage(nullptr), "not the password", 258, "decryptExtractCfg faild."},
      {"no marker", craftedArchive([](const std::string& s) { ::unlink((s + "/LinuxConfig.xml").c_str()); }), "pw",
       1, "import ConfigData is Windows Operating System."},
      {"no version", withConfig("<Config><Network/></Config>"), "pw", 258, nullptr},
      {"no version", withConfig("<Config><BasicInfo><Name>x</Name></BasicInfo></Config>"), "pw", 258, nullptr},
      {"garbage Config.xml", withConfig("garbage <<<"), "pw", 258, nullptr},
      {"empty Config.xml", withConfig(""), "pw", 258, nullptr},
      {"garbage PrivateConfig.xml", withGarbage("PrivateConfig.xml"), "pw", 9, "importXMLCfg faild."},
      {"garbage QAPIConfig.xml", withGarbage("QAPIConfig.xml"), "pw", 9, "importXMLCfg faild."},
      {"empty archive", "", "pw", 258, nullptr},
      {"truncated", good.substr(0, good.size() / 2), "pw", 258, nullptr},
      {"tail cut", good.substr(0, good.size() - 10), "pw", 258, nullptr},
      {"random bytes", random, "pw", 258, nullptr},
      {"zip header only", "PK\x03\x04", "pw", 258, nullptr},
  };
  const auto before = xmlState();
  for (const auto& row : rows) {
    SCOPED_TRACE(row.what);
    EXPECT_EQ(importArchive(row.archive, row.password), row.code);
    EXPECT_TRUE(!row.message || log_.has(row.code == 1 ? 4 : 5, row.message));
    expectNothingChanged(before);
  }
  // No uploaded archive, then no archiver.
  ::unlink(path("configurationIn.zip").c_str());
  EXPECT_EQ(OX_ConfigMgr_GetCfgImportAndExport()->importConfigData("pw"), 258);
  expectNothingChanged(before);
  ::unlink(path("7za").c_str());
  EXPECT_EQ(importArchive(good, "pw"), 258);
  expectNothingChanged(before);
}

TEST_F(ImportTest, EntriesOutsideTheStagingFolderAreRefusedBeforeAnythingIsUnpacked) {
  start();
  const std::string outsideDir = path("..") + "/";
  const std::string absolute = path("abs_target.txt");
  ::unlink((outsideDir + "escaped.txt").c_str());
  const std::vector<std::pair<const char*, std::vector<ZipItem>>> cases = {
      {"dot-dot", {{"../escaped.txt", "x"}}},
      {"dot-dot inside", {{"configuration/../../escaped.txt", "x"}}},
      {"absolute", {{absolute, "x"}}},
      {"link", {{"configuration/cert.key", "/etc/passwd", 0120777}}},
      {"folder link", {{"configuration/nginx", "/tmp", 0120777}}},
      {"top level", {{"Config.xml", "<Config/>"}}},
      {"nested", {{"configuration/sub/x.txt", "x"}}},
      {"backslash", {{"configuration\\..\\..\\escaped.txt", "x"}}},
      {"twice", {{"configuration/Config.xml", "<Config/>"}}},
      {"fifo", {{"configuration/pipe", "", 010644}}},
  };
  const auto before = xmlState();
  const std::string db = readFile(path("Config.db3"));
  for (const auto& c : cases) {
    EXPECT_EQ(importArchive(plainArchive(c.second), "pw"), 258) << c.first;
    expectNothingChanged(before);
    EXPECT_EQ(readFile(path("Config.db3")), db);
    EXPECT_FALSE(fileExists(outsideDir + "escaped.txt")) << c.first;
    EXPECT_FALSE(fileExists(absolute)) << c.first;
  }
  EXPECT_TRUE(log_.contains("archive refused: "));
}

TEST_F(ImportTest, TooManyOrTooLargeEntriesAreRefused) {
  start();
  const auto before = xmlState();
  std::vector<ZipItem> many;
  for (int i = 0; i < 64; ++i) many.push_back({"configuration/f" + std::to_string(i), "x"});
  EXPECT_EQ(importArchive(plainArchive(many), "pw"), 258);
  expectNothingChanged(before);

  auto limits = OxConfigMgr::transfer::defaultArchiveLimits();
  limits.maxEntryBytes = 64 * 1024;
  OxConfigMgr::transfer::setArchiveLimits(limits);
  EXPECT_EQ(importArchive(plainArchive({{"configuration/big", std::string(64 * 1024 + 1, 'b')}}), "pw"), 258);
  expectNothingChanged(before);
  EXPECT_EQ(importArchive(plainArchive({{"configuration/fits", std::string(64 * 1024, 'b')}}), "pw"), 0);

  limits.maxArchiveBytes = 4096;
  OxConfigMgr::transfer::setArchiveLimits(limits);
  const auto imported = xmlState();
  EXPECT_EQ(importArchive(plainArchive({{"configuration/padding", std::string(8192, 'p')}}), "pw"), 258);
  EXPECT_TRUE(log_.has(4, "archive refused: archive too large"));
  expectNothingChanged(imported);
}

TEST_F(ImportTest, LeftoverStagingFolderIsReplacedAndRemoved) {
  start();
  std::string archive = exportArchive("pw");
  ::mkdir(path("configuration").c_str(), 0755);
  ::mkdir(path("configuration/sub").c_str(), 0755);
  writeFile(path("configuration/LinuxConfig.xml"), "");
  writeFile(path("configuration/sub/x"), "x");
  ASSERT_EQ(::symlink("/etc", path("configuration/etc").c_str()), 0);
  EXPECT_EQ(importArchive(archive, "pw"), 0);
  EXPECT_FALSE(stagingLeft());
  EXPECT_TRUE(fileExists("/etc/passwd"));

  // Without a marker in the archive, a stale marker in the folder does not count.
  std::string noMarker = craftedArchive([](const std::string& s) { ::unlink((s + "/LinuxConfig.xml").c_str()); });
  ::mkdir(path("configuration").c_str(), 0755);
  writeFile(path("configuration/LinuxConfig.xml"), "");
  EXPECT_EQ(importArchive(noMarker, "pw"), 1);
  EXPECT_FALSE(stagingLeft());
}

TEST_F(ImportTest, FailureAtEachStepLeavesTheThreeXmlFilesAsTheyWere) {
  start();
  std::string archive = craftedArchive([](const std::string& s) {
    ASSERT_TRUE(setXmlText(s + "/Config.xml", {"Config", "Network", "HTTP", "Port"}, "8066"));
    ASSERT_TRUE(setXmlText(s + "/PrivateConfig.xml", {"PrivateConfig", "Encrypt", "QAPI", "Level"}, "3"));
    ASSERT_TRUE(setXmlText(s + "/QAPIConfig.xml", {"Config", "QAPIConfig", "Mode", }, "none"));
  });
  struct Step {
    const char* file;
    const char* message;
  };
  const Step steps[] = {
      {"Config.xml", "importConfigXMLFile faild!"},
      {"PrivateConfig.xml", "importPrivateConfigXMLFile faild!"},
      {"QAPIConfig.xml", "importQAPIConfigXMLFile faild!"},
      {"Config.db3", "importConfigDBTable faild."},
  };
  for (const auto& step : steps) {
    SCOPED_TRACE(step.file);
    const auto before = xmlState();
    const std::string db = readFile(path("Config.db3"));
    FaultEnv env;  // the first rename onto the file fails
    env.failOnce(FaultEnv::kRename, EIO, 0);
    env.onlyPathsContaining(std::string("/") + step.file);
    {
      ScopedEnv scoped(&env);
      EXPECT_EQ(importArchive(archive, "pw"), 9);
    }
    EXPECT_TRUE(log_.has(5, step.message));
    expectNothingChanged(before);
    EXPECT_EQ(readFile(path("Config.db3")), db);
    EXPECT_EQ(fileMode(path("PrivateConfig.xml")), 0600u);
  }
  // The archiver cannot run at all.
  class NoRunEnv : public OxBase::EnvWrapper {
   public:
    NoRunEnv() : EnvWrapper(OxBase::Env::Current()) {}
    OxBase::CommandResult Run(const std::vector<std::string>&, const std::string&, const std::string&) override {
      return OxBase::CommandResult();
    }
  } noRun;
  const auto before = xmlState();
  {
    ScopedEnv scoped(&noRun);
    EXPECT_EQ(importArchive(archive, "pw"), 258);
  }
  expectNothingChanged(before);
  // And with every step working the archive's values arrive.
  EXPECT_EQ(importArchive(archive, "pw"), 0);
  EXPECT_EQ(xmlText(path("Config.xml"), {"Config", "Network", "HTTP", "Port"}), "8066");
  EXPECT_EQ(xmlText(path("PrivateConfig.xml"), {"PrivateConfig", "Encrypt", "QAPI", "Level"}), "3");
  EXPECT_EQ(xmlText(path("QAPIConfig.xml"), {"Config", "QAPIConfig", "Mode"}), "none");
}

// While the import holds the XML files, a setter waits: its change comes
// after the roll-back instead of being erased by it.
class SetterDuringRollbackEnv : public OxBase::EnvWrapper {
 public:
  SetterDuringRollbackEnv() : EnvWrapper(OxBase::Env::Current()) {}
  int Rename(const std::string& from, const std::string& to) override {
    if (!setter_.joinable() && to.size() > 15 && to.compare(to.size() - 15, 15, "/QAPIConfig.xml") == 0) {
      setter_ = std::thread([] { OX_ConfigMgr_GetNetworkCfg()->setHttpPort(8123); });
      // Long enough for an unserialised setter to finish first.
      std::this_thread::sleep_for(std::chrono::milliseconds(300));
      errno = EIO;
      return -1;
    }
    return EnvWrapper::Rename(from, to);
  }
  void join() {
    if (setter_.joinable()) setter_.join();
  }

 private:
  std::thread setter_;
};

TEST_F(ImportTest, ASetterDuringTheImportIsNotLostToTheRollBack) {
  start();
  std::string archive = craftedArchive([](const std::string& s) {
    ASSERT_TRUE(setXmlText(s + "/Config.xml", {"Config", "Network", "HTTP", "Port"}, "8066"));
  });
  SetterDuringRollbackEnv env;
  {
    ScopedEnv scoped(&env);
    EXPECT_EQ(importArchive(archive, "pw"), 9);
    env.join();
  }
  EXPECT_EQ(xmlText(path("Config.xml"), {"Config", "Network", "HTTP", "Port"}), "8123");
}

TEST_F(ImportTest, WithoutStartedUsersOrPrivateConfigurationTheXmlFilesGoBack) {
  // Nothing started: the object is made by hand and finds no user handle.
  CCfgImportAndExport transfer;
  std::string archive;
  ASSERT_EQ(transfer.exportConfigData(archive, "pw"), 0);
  const std::string work = path("craft");
  ::mkdir(work.c_str(), 0700);
  ASSERT_EQ(unpack(archive, "pw", work), 0);
  ASSERT_TRUE(setXmlText(work + "/configuration/Config.xml", {"Config", "Network", "HTTP", "Port"}, "8055"));
  writeFile(path("configurationIn.zip"), pack(work, "pw"));
  const auto before = xmlState();
  EXPECT_EQ(transfer.importConfigData("pw"), 9);
  EXPECT_TRUE(log_.has(5, "OX_ConfigMgr_GetUserCfg faild."));
  expectNothingChanged(before);
}

}  // namespace
}  // namespace oxtest
