// The oxcfg storage commands, run as a separate process on a factory
// directory. Nothing here reaches a storage service: the cases are refused
// before any request (the child process sees the machine's real adapters).
#include <gtest/gtest.h>

#include <regex>
#include <string>
#include <vector>

#include "support/test_support.h"

namespace {

class StorageCliTest : public oxtest::WorkDirTest {
 protected:
  void SetUp() override {
    oxtest::WorkDirTest::SetUp();
    oxtest::copyFactory(dir());
  }
  OxBase::CommandResult oxcfg(std::vector<std::string> args) { return oxtest::runOxcfgIn(dir(), std::move(args)); }
};

TEST_F(StorageCliTest, CredentialsArePrintedOnlyWhenAskedFor) {
  oxtest::writeFile(path("empty.jpg"), "");
  auto r = oxcfg({"storage", "upload", path("empty.jpg")});
  if (r.output.find("start failed") != std::string::npos) GTEST_SKIP() << "no usable adapter: " << r.output;
  EXPECT_EQ(r.exitCode, 1);
  EXPECT_NE(r.output.find("storage upload: failed (error -2"), std::string::npos) << r.output;
  EXPECT_EQ(r.output.find("access key"), std::string::npos) << r.output;

  r = oxcfg({"storage", "upload", path("empty.jpg"), "--show-credentials"});
  EXPECT_EQ(r.exitCode, 1);
  EXPECT_TRUE(std::regex_search(r.output, std::regex("access key: [0-9a-f]{30}\nsecret key: [0-9a-f]{31}\n")))
      << r.output;
}

TEST_F(StorageCliTest, ForeignAddressesAndBadArgumentsAreRefused) {
  auto r = oxcfg({"storage", "delete", "https://127.0.0.2:6011/pss/1/x/123.jpg"});
  if (r.output.find("start failed") != std::string::npos) GTEST_SKIP() << "no usable adapter: " << r.output;
  EXPECT_EQ(r.exitCode, 1);
  EXPECT_NE(r.output.find("storage delete: failed"), std::string::npos) << r.output;
  EXPECT_EQ(oxcfg({"storage", "delete"}).exitCode, 2);
  EXPECT_EQ(oxcfg({"storage", "delete", "a", "b"}).exitCode, 2);
  EXPECT_EQ(oxcfg({"storage", "upload", path("x.jpg"), "--path"}).exitCode, 2);
  EXPECT_EQ(oxcfg({"storage", "upload", path("x.jpg"), "--bogus"}).exitCode, 2);
  r = oxcfg({"storage", "upload", path("missing.jpg")});
  EXPECT_EQ(r.exitCode, 1);
  EXPECT_NE(r.output.find("cannot read"), std::string::npos) << r.output;
}

}  // namespace
