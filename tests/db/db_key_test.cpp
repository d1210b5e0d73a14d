// The key of the configuration database, fetched through the provider that
// the instance manager installs.
#include "db/db_key.h"

#include <gtest/gtest.h>

#include <oxconfigmgr/OxConfigMgr.h>

#include <cstring>
#include <stdexcept>

#include "db/db_test_support.h"

namespace {

using OxConfigMgr::GetConfigDbKey;
using OxConfigMgr::kDBKeyLength;
using OxConfigMgr::SetConfigDbKeyProvider;

bool allZero(const unsigned char* p) {
  for (int i = 0; i < kDBKeyLength; ++i) {
    if (p[i] != 0) return false;
  }
  return true;
}

TEST(ConfigDbKeyTest, WithoutAProviderOrWhenItFailsOrThrowsThereIsNoKey) {
  unsigned char key[kDBKeyLength];
  std::memset(key, 0xee, sizeof key);
  SetConfigDbKeyProvider(nullptr);
  EXPECT_FALSE(GetConfigDbKey(key));
  EXPECT_TRUE(allZero(key));

  SetConfigDbKeyProvider([](unsigned char out[kDBKeyLength]) {
    std::memset(out, 0x11, kDBKeyLength);  // half-written, then refused
    return false;
  });
  EXPECT_FALSE(GetConfigDbKey(key));
  EXPECT_TRUE(allZero(key));

  SetConfigDbKeyProvider([](unsigned char out[kDBKeyLength]) -> bool {
    std::memset(out, 0x22, kDBKeyLength);
    throw std::runtime_error("no key today");
  });
  EXPECT_FALSE(GetConfigDbKey(key));
  EXPECT_TRUE(allZero(key));

  SetConfigDbKeyProvider([](unsigned char out[kDBKeyLength]) {
    std::memset(out, 0x33, kDBKeyLength);
    return true;
  });
  ASSERT_TRUE(GetConfigDbKey(key));
  EXPECT_EQ(key[0], 0x33);
  EXPECT_EQ(key[kDBKeyLength - 1], 0x33);
  SetConfigDbKeyProvider(nullptr);
}

class StartedKeyTest : public oxtest::DBDirTest {};

TEST_F(StartedKeyTest, TheManagerHandsOutThePrivateConfigurationsStorageKey) {
  unsigned char key[kDBKeyLength];
  (void)OX_ConfigMgr_GetBasicCfg();  // the manager exists, nothing is loaded
  EXPECT_FALSE(GetConfigDbKey(key));
  ASSERT_EQ(OX_ConfigMgr_Start(), 1);
  ASSERT_TRUE(GetConfigDbKey(key));
  EXPECT_EQ(Vlue2HexString(key, kDBKeyLength), keyHex());
}

}  // namespace
