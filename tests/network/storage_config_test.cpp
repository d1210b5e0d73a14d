// The storage credentials: made fresh at every start, in memory only.
#include <oxconfigmgr/OxConfigMgr.h>

#include <regex>
#include <string>

#include "platform/lss_client.h"
#include "support/network_support.h"

namespace {

using OxConfigMgr::CStorageConfig;

std::string hmacHex(const std::string& key, const std::string& data) {
  char out[65];
  EXPECT_EQ(NET_LSS_HAMSHA256(key.c_str(), data.c_str(), out, sizeof out), 0);
  return out;
}

// The number below 10000 whose digest under the access key begins with the
// secret key; -1 when there is none.
int secretNumber(const std::string& ak, const std::string& sk) {
  for (int n = 0; n < 10000; ++n) {
    if (hmacHex(ak, std::to_string(n)).compare(0, sk.size(), sk) == 0) return n;
  }
  return -1;
}

TEST(StorageConfigTest, KeysAreMadeFreshAtEveryStart) {
  CStorageConfig first, second;
  std::string ak = "x", sk = "y";
  first.getStorageAkSk(ak, sk);
  EXPECT_EQ(ak, "");
  EXPECT_EQ(sk, "");

  ASSERT_TRUE(first.start());
  ASSERT_TRUE(second.start());
  std::string ak1, sk1, ak2, sk2;
  first.getStorageAkSk(ak1, sk1);
  second.getStorageAkSk(ak2, sk2);
  EXPECT_TRUE(std::regex_match(ak1, std::regex("[0-9a-f]{30}"))) << ak1;
  EXPECT_TRUE(std::regex_match(sk1, std::regex("[0-9a-f]{31}"))) << sk1;
  EXPECT_NE(ak1, ak2);
  EXPECT_NE(sk1, sk2);
  EXPECT_GE(secretNumber(ak1, sk1), 0);
  EXPECT_GE(secretNumber(ak2, sk2), 0);
}

// UUID and random number from the environment: the pair follows exactly.
class FixedRandomEnv : public OxBase::EnvWrapper {
 public:
  FixedRandomEnv() : EnvWrapper(OxBase::Env::Default()) {}
  uint32_t Random32() override { return 4012345; }
  void NewUuid(unsigned char out[16]) override {
    for (int i = 0; i < 16; ++i) out[i] = static_cast<unsigned char>(0xA0 + i);
  }
};

TEST(StorageConfigTest, ThePairIsTheUuidTextAndItsKeyedDigestOfARandomNumber) {
  FixedRandomEnv env;
  oxtest::ScopedEnv scoped(&env);
  oxtest::LogCapture log;
  CStorageConfig cfg;
  ASSERT_TRUE(cfg.start());
  std::string ak, sk;
  cfg.getStorageAkSk(ak, sk);
  EXPECT_EQ(ak, "a0a1a2a3a4a5a6a7a8a9aaabacadae");
  EXPECT_EQ(sk, hmacHex(ak, "2345").substr(0, 31));  // 4012345 % 10000
  for (const auto& e : log.entries()) {
    EXPECT_EQ(e.text.find(ak), std::string::npos);
    EXPECT_EQ(e.text.find(sk), std::string::npos);
  }
}

class StorageStartTest : public nettest::NetworkTest {
 protected:
  void SetUp() override {
    nettest::NetworkTest::SetUp();
    oxtest::copyFactory(dir());
    env_.setAdapters({nettest::adapter("eth0", {"192.0.2.10"})});
  }
};

TEST_F(StorageStartTest, TheStartMakesTheCredentialsAndHandsThemOut) {
  EXPECT_FALSE(OX_ConfigMgr_GetStorageConfig());
  ASSERT_EQ(OX_ConfigMgr_Start(), 1);
  std::shared_ptr<CStorageConfig> cfg = OX_ConfigMgr_GetStorageConfig();
  ASSERT_TRUE(cfg);
  std::string ak, sk;
  cfg->getStorageAkSk(ak, sk);
  EXPECT_EQ(ak.size(), 30u);
  EXPECT_EQ(sk.size(), 31u);
  // A second start keeps the object and its pair.
  ASSERT_EQ(OX_ConfigMgr_Start(), 1);
  EXPECT_EQ(OX_ConfigMgr_GetStorageConfig(), cfg);
  std::string ak2, sk2;
  cfg->getStorageAkSk(ak2, sk2);
  EXPECT_EQ(ak2, ak);
  EXPECT_EQ(sk2, sk);
  // Nothing of them reached a file of the working directory.
  for (const auto& name : oxtest::listDir(dir())) {
    const std::string content = oxtest::readFile(path(name));
    EXPECT_EQ(content.find(ak), std::string::npos) << name;
    EXPECT_EQ(content.find(sk), std::string::npos) << name;
  }
}

}  // namespace
