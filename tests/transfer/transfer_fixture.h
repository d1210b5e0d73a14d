// The export and import tests run in a factory working directory with the
// system's real 7za linked in, and build hostile archives byte by byte.
#ifndef OXCFG_TESTS_TRANSFER_TRANSFER_FIXTURE_H
#define OXCFG_TESTS_TRANSFER_TRANSFER_FIXTURE_H

#include <sys/stat.h>
#include <unistd.h>

#include <oxconfigmgr/OxConfigMgr.h>

#include <cstdint>
#include <initializer_list>
#include <map>
#include <set>
#include <string>
#include <vector>

#include "frame/config_store.h"
#include "platform/env.h"
#include "platform/xml_base.h"
#include "support/test_support.h"
#include "transfer/archive_listing.h"

namespace oxtest {

// One entry of a hand-made ZIP archive (stored, not encrypted).
struct ZipItem {
  std::string name;
  std::string data;
  uint32_t unixMode = 0100644;  // 0120777 for a symbolic link, 040755 for a folder
};

inline uint32_t crc32Of(const std::string& data) {
  uint32_t crc = 0xffffffffu;
  for (unsigned char c : data) {
    crc ^= c;
    for (int k = 0; k < 8; ++k) crc = (crc >> 1) ^ (0xedb88320u & (0u - (crc & 1u)));
  }
  return ~crc;
}

// A ZIP archive made on "Unix" (so the mode, links included, is honoured).
inline std::string makeZip(const std::vector<ZipItem>& items) {
  auto u16 = [](std::string& s, uint32_t v) {
    s.push_back(static_cast<char>(v & 0xff));
    s.push_back(static_cast<char>((v >> 8) & 0xff));
  };
  auto u32 = [&](std::string& s, uint32_t v) {
    u16(s, v & 0xffff);
    u16(s, v >> 16);
  };
  std::string body, directory;
  for (const auto& it : items) {
    const uint32_t offset = static_cast<uint32_t>(body.size());
    const uint32_t crc = crc32Of(it.data);
    const uint32_t size = static_cast<uint32_t>(it.data.size());
    u32(body, 0x04034b50);
    u16(body, 10), u16(body, 0), u16(body, 0), u16(body, 0), u16(body, 0);
    u32(body, crc), u32(body, size), u32(body, size);
    u16(body, static_cast<uint32_t>(it.name.size())), u16(body, 0);
    body += it.name + it.data;
    u32(directory, 0x02014b50);
    u16(directory, (3u << 8) | 20), u16(directory, 10), u16(directory, 0), u16(directory, 0);
    u16(directory, 0), u16(directory, 0);
    u32(directory, crc), u32(directory, size), u32(directory, size);
    u16(directory, static_cast<uint32_t>(it.name.size())), u16(directory, 0), u16(directory, 0);
    u16(directory, 0), u16(directory, 0);
    u32(directory, (it.unixMode << 16) | ((it.unixMode & 040000) ? 0x10 : 0));
    u32(directory, offset);
    directory += it.name;
  }
  std::string zip = body + directory;
  u32(zip, 0x06054b50);
  u16(zip, 0), u16(zip, 0);
  u16(zip, static_cast<uint32_t>(items.size())), u16(zip, static_cast<uint32_t>(items.size()));
  u32(zip, static_cast<uint32_t>(directory.size())), u32(zip, static_cast<uint32_t>(body.size()));
  u16(zip, 0);
  return zip;
}

inline OxBase::CommandResult runCommand(const std::vector<std::string>& argv, const std::string& input = "",
                                        const std::string& workDir = "") {
  return OxBase::Env::Default()->Run(argv, input, workDir);
}

// A document's text as the library writes it: equal texts, equal content.
inline std::string canonicalXml(const std::string& path) {
  OxBase::CXmlBase xml;
  if (xml.LoadFile(path) != 1) return "<unreadable>";
  return xml.ToString();
}

// Sets the text of the element at `walk` in the file.
inline bool setXmlText(const std::string& path, std::initializer_list<const char*> walk, const std::string& text) {
  OxBase::CXmlBase xml;
  if (walk.size() == 0 || xml.LoadFile(path) != 1) return false;
  // Walk to the parent, then change the leaf as a setter does.
  std::vector<const char*> names(walk.begin(), walk.end());
  const char* leaf = names.back();
  names.pop_back();
  xml.SetRoot();
  for (const char* name : names) {
    if (!xml.FindElem(name) || !xml.IntoElem()) return false;
  }
  if (xml.ModifyData(leaf, text.c_str()) != 1) return false;
  return xml.WriteToFile(path) == 1;
}

class TransferTest : public WorkDirTest {
 protected:
  void SetUp() override {
    WorkDirTest::SetUp();
    copyFactory(dir());
    ::mkdir(path("nginx").c_str(), 0755);
    ::mkdir(path("nginx/conf").c_str(), 0755);
    linkArchiver();
  }
  void TearDown() override {
    OxConfigMgr::transfer::setArchiveLimits(OxConfigMgr::transfer::defaultArchiveLimits());
    WorkDirTest::TearDown();
  }

  void linkArchiver() {
    ::unlink(path("7za").c_str());
    ASSERT_EQ(::symlink("/usr/bin/7za", path("7za").c_str()), 0);
  }
  // Replaces the archiver with a script that records its arguments, one a
  // line, in "7za.args", and then runs the real one.
  void recordingArchiver() {
    ::unlink(path("7za").c_str());
    writeFile(path("7za"), "#!/bin/sh\nfor a in \"$@\"; do printf '%s\\n' \"$a\" >> '" + path("7za.args") +
                               "'; done\nexec /usr/bin/7za \"$@\"\n");
    ::chmod(path("7za").c_str(), 0755);
  }

  void start() { ASSERT_EQ(OX_ConfigMgr_Start(), 1); }

  std::string exportArchive(const std::string& password, int* rc = nullptr) {
    std::string data;
    int r = OX_ConfigMgr_GetCfgImportAndExport()->exportConfigData(data, password);
    if (rc) *rc = r;
    else EXPECT_EQ(r, 0);
    return data;
  }
  int importArchive(const std::string& archive, const std::string& password) {
    writeFile(path("configurationIn.zip"), archive);
    return OX_ConfigMgr_GetCfgImportAndExport()->importConfigData(password);
  }

  // The names of the archive's entries per `7za l -slt`, and their methods.
  std::set<std::string> entryPaths(const std::string& archive, std::set<std::string>* methods = nullptr) {
    writeFile(path("probe.zip"), archive);
    OxBase::CommandResult r = runCommand({"/usr/bin/7za", "l", "-slt", "-y", path("probe.zip")});
    std::set<std::string> paths;
    bool entries = false;
    size_t start = 0;
    while (start < r.output.size()) {
      size_t nl = r.output.find('\n', start);
      std::string line = r.output.substr(start, nl - start);
      start = nl == std::string::npos ? r.output.size() : nl + 1;
      if (line == "----------") entries = true;
      if (entries && line.compare(0, 7, "Path = ") == 0) paths.insert(line.substr(7));
      if (entries && methods && line.compare(0, 9, "Method = ") == 0) methods->insert(line.substr(9));
    }
    ::unlink(path("probe.zip").c_str());
    return paths;
  }

  // Unpacks `archive` with `password` (given on the command line: this is
  // the test, not the library) into `into`; the archiver's exit code.
  int unpack(const std::string& archive, const std::string& password, const std::string& into) {
    writeFile(path("probe.zip"), archive);
    OxBase::CommandResult r =
        runCommand({"/usr/bin/7za", "x", "-y", "-p" + password, "-o" + into, path("probe.zip")});
    ::unlink(path("probe.zip").c_str());
    return r.exitCode;
  }

  // Packs the folder `from`/configuration as an archive protected by
  // `password` (legacy ZIP encryption unless `aes`).
  std::string pack(const std::string& from, const std::string& password, bool aes = true) {
    std::vector<std::string> argv = {"/usr/bin/7za", "a", "-tzip", "-y", "-p" + password, path("packed.zip"),
                                     "configuration"};
    if (aes) argv.push_back("-mem=AES256");
    ::unlink(path("packed.zip").c_str());
    OxBase::CommandResult r = runCommand(argv, "", from);
    EXPECT_EQ(r.exitCode, 0) << r.output;
    std::string data = readFile(path("packed.zip"));
    ::unlink(path("packed.zip").c_str());
    return data;
  }

  // This gateway's own export, unpacked into `into`/configuration for editing.
  void exportUnpacked(const std::string& password, const std::string& into) {
    std::string archive = exportArchive(password);
    ::mkdir(into.c_str(), 0700);
    ASSERT_EQ(unpack(archive, password, into), 0);
  }

  // The three XML files in the form the library writes them.
  std::vector<std::string> xmlState() {
    return {canonicalXml(path("Config.xml")), canonicalXml(path("PrivateConfig.xml")),
            canonicalXml(path("QAPIConfig.xml"))};
  }

  bool stagingLeft() { return fileExists(path("configuration")); }

  LogCapture log_;
};

}  // namespace oxtest

#endif  // OXCFG_TESTS_TRANSFER_TRANSFER_FIXTURE_H
