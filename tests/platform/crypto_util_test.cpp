#include "platform/crypto_util.h"

#include <string>

#include <gtest/gtest.h>

#include "platform/hex.h"

namespace {

TEST(CryptoUtilTest, Sha256KnownAnswers) {
  unsigned char digest[OxBase::kSha256Bytes];
  ASSERT_TRUE(OxBase::Sha256("abc", 3, digest));
  EXPECT_EQ(Vlue2HexString(digest, sizeof digest),
            "ba7816bf8f01cfea414140de5dae2223b00361a396177a9cb410ff61f20015ad");
  ASSERT_TRUE(OxBase::Sha256(nullptr, 0, digest));
  EXPECT_EQ(Vlue2HexString(digest, sizeof digest),
            "e3b0c44298fc1c149afbf4c8996fb92427ae41e4649b934ca495991b7852b855");
  EXPECT_FALSE(OxBase::Sha256(nullptr, 1, digest));
  EXPECT_EQ(Vlue2HexString(digest, sizeof digest), std::string(64, '0'));
}

TEST(CryptoUtilTest, ConstantTimeEquals) {
  EXPECT_TRUE(OxBase::ConstantTimeEquals("token", "token", 5));
  EXPECT_FALSE(OxBase::ConstantTimeEquals("token", "tokem", 5));
  EXPECT_TRUE(OxBase::ConstantTimeEquals(nullptr, nullptr, 0));
  EXPECT_FALSE(OxBase::ConstantTimeEquals(nullptr, "x", 1));
}

}  // namespace
