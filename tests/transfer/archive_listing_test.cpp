#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "transfer/archive_listing.h"
#include "transfer/archive_tool.h"
#include "transfer/transfer_fixture.h"

namespace {

using namespace OxConfigMgr::transfer;

const char* const kHeader =
    "\n7-Zip (a) [64]\n\nListing archive: /gw/configurationIn.zip\n\n--\nPath = /gw/configurationIn.zip\n"
    "Type = zip\nPhysical Size = 570\n\n----------\n";

std::string block(const std::string& path, bool folder, const std::string& size, const std::string& attributes) {
  return "Path = " + path + "\nFolder = " + (folder ? "+" : "-") + "\nSize = " + size +
         "\nAttributes = " + attributes + "\nEncrypted = +\nComment = \nMethod = AES-256 Deflate\n\n";
}

const std::string kGood = std::string(kHeader) + block("configuration", true, "0", "D drwxr-xr-x") +
                          block("configuration/Config.xml", false, "3372", " -rw-r--r--") +
                          block("configuration/LinuxConfig.xml", false, "0", "A");

bool accepts(const std::string& listing, std::string* reason = nullptr) {
  std::vector<ArchiveEntry> entries;
  std::string why;
  bool ok = checkArchiveListing(listing, "configuration", defaultArchiveLimits(), &entries, &why);
  if (reason) *reason = why;
  return ok;
}

TEST(ArchiveListingTest, AcceptsTheStagingFolderAndFilesDirectlyInIt) {
  std::vector<ArchiveEntry> entries;
  std::string reason;
  ASSERT_TRUE(checkArchiveListing(kGood, "configuration", defaultArchiveLimits(), &entries, &reason)) << reason;
  ASSERT_EQ(entries.size(), 3u);
  EXPECT_TRUE(entries[0].folder);
  EXPECT_EQ(entries[1].path, "configuration/Config.xml");
  EXPECT_EQ(entries[1].size, 3372u);
}

TEST(ArchiveListingTest, RefusesWhatCouldLandElsewhereOrConfuseTheParser) {
  const std::string h = kHeader;
  const std::vector<std::pair<const char*, std::string>> refused = {
      {"no separator", "Path = configuration/x\n"},
      {"dot-dot", h + block("configuration/../x", false, "1", "A")},
      {"leading dot-dot", h + block("../x", false, "1", "A")},
      {"absolute", h + block("/tmp/x", false, "1", "A")},
      {"dot", h + block("configuration/./x", false, "1", "A")},
      {"empty component", h + block("configuration//x", false, "1", "A")},
      {"backslash", h + block("configuration\\x", false, "1", "A")},
      {"control character", h + block("configuration/a\x01", false, "1", "A")},
      {"other folder", h + block("config/x", false, "1", "A")},
      {"top level file", h + block("Config.xml", false, "1", "A")},
      {"nested", h + block("configuration/a/b", false, "1", "A")},
      {"file posing as folder", h + block("configuration/sub", true, "0", "D drwxr-xr-x")},
      {"link", h + block("configuration/l", false, "11", " lrwxrwxrwx")},
      {"fifo", h + block("configuration/p", false, "0", " prw-r--r--")},
      {"named twice", h + block("configuration/x", false, "1", "A") + block("configuration/x", false, "1", "A")},
      {"key twice", h + "Path = configuration/x\nPath = configuration/y\n\n"},
      {"stray line", h + block("configuration/x", false, "1", "A") + "Errors: 1\n"},
      {"comment injection", h + "Path = configuration/x\nComment = a\n----------\nPath = ../y\n\n"},
      {"no path", h + "Folder = -\nSize = 1\n\n"},
      {"bad size", h + block("configuration/x", false, "12a", "A")},
      {"huge size", h + block("configuration/x", false, "99999999999999999999999", "A")},
      {"too large", h + block("configuration/x", false, std::to_string(65u << 20), "A")},
      {"folder flag", h + "Path = configuration/x\nFolder = ?\n\n"},
  };
  for (const auto& c : refused) {
    std::string reason;
    EXPECT_FALSE(accepts(c.second, &reason)) << c.first;
    EXPECT_FALSE(reason.empty()) << c.first;
  }
  std::string many = kHeader;
  for (int i = 0; i < 65; ++i) many += block("configuration/f" + std::to_string(i), false, "1", "A");
  EXPECT_FALSE(accepts(many));
  std::string large = kHeader;
  for (int i = 0; i < 3; ++i) large += block("configuration/f" + std::to_string(i), false, std::to_string(60u << 20), "A");
  EXPECT_FALSE(accepts(large));  // 180 MiB in all
}

TEST(ArchiveListingTest, ZipDirectoryRecordBoundsTheListing) {
  const ArchiveLimits limits = defaultArchiveLimits();
  auto read = [&](const std::string& zip, ZipDirectory* dir = nullptr) {
    ZipDirectory d;
    std::string reason;
    bool ok = readZipDirectory(reinterpret_cast<const unsigned char*>(zip.data()), zip.size(), zip.size(), limits,
                               dir ? dir : &d, &reason);
    return ok;
  };
  std::string zip = oxtest::makeZip({{"configuration/a", "1"}, {"configuration/b", "22"}});
  ZipDirectory dir;
  ASSERT_TRUE(read(zip, &dir));
  EXPECT_EQ(dir.entries, 2u);
  EXPECT_FALSE(read(""));
  EXPECT_FALSE(read("PK\x05\x06"));
  EXPECT_FALSE(read(zip.substr(0, zip.size() - 1)));  // the record is cut
  EXPECT_FALSE(read(zip + "trailing"));               // bytes after the comment
  std::vector<oxtest::ZipItem> many;
  for (int i = 0; i < 65; ++i) many.push_back({"configuration/f" + std::to_string(i), ""});
  EXPECT_FALSE(read(oxtest::makeZip(many)));
  std::string zip64 = zip;
  zip64[zip64.size() - 12] = '\xff';  // entries: 0xffff
  zip64[zip64.size() - 11] = '\xff';
  zip64[zip64.size() - 14] = '\xff';
  zip64[zip64.size() - 13] = '\xff';
  EXPECT_FALSE(read(zip64));
}

TEST(ArchiveToolTest, PrintableAsciiPasswordsGoOverUnchangedOthersEscaped) {
  EXPECT_EQ(archiverPassword("pw \"'$(x);%"), "pw \"'$(x);%");
  EXPECT_EQ(archiverPassword("caf\xc3\xa9"), "caf%C3%A9");
  EXPECT_EQ(archiverPassword("50%\t"), "50%25%09");
  EXPECT_EQ(archiverPassword(std::string("a\0b\nc", 5)), "a%00b%0Ac");
  EXPECT_EQ(archiverPassword(""), "");
}

}  // namespace
