// Under the test table set (identity external encodings) the white-box cipher
// must be AES exactly: known-answer vectors, then random keys and data
// against OpenSSL in every mode and direction.
#include "security/wbaes_internal.h"
#include "security/wbaes_test_support.h"

#include <gtest/gtest.h>

#include <random>
#include <string>
#include <vector>

namespace OxConfigMgr {
namespace wbaes {
namespace {

using testsupport::DecKeyMaterial;
using testsupport::EncKeyMaterial;
using testsupport::KeyMaterial;
using testsupport::OpenSslAes;
using Bytes = std::vector<std::uint8_t>;

Bytes Hex(const std::string& hex) {
  Bytes out;
  for (std::size_t i = 0; i + 1 < hex.size(); i += 2) {
    out.push_back(static_cast<std::uint8_t>(std::stoul(hex.substr(i, 2), nullptr, 16)));
  }
  return out;
}

// Empty vectors may have no storage; the modes refuse null pointers.
const std::uint8_t* Data(const Bytes& b) {
  static const std::uint8_t kNothing = 0;
  return b.empty() ? &kNothing : b.data();
}

Bytes RandomBytes(std::mt19937& rng, std::size_t n) {
  Bytes b(n);
  for (auto& x : b) x = static_cast<std::uint8_t>(rng());
  return b;
}

// One block through init_key and the block function, as the modes use them.
Bytes Block(bool decipher, const KeyMaterial& km, int bits, const Bytes& in) {
  const int rounds = testsupport::RoundsForBits(bits);
  std::uint8_t roundKeys[kRoundKeyAreaSize];
  EXPECT_EQ(kOk, init_key(km.data(), rounds, roundKeys));
  Bytes out(16);
  const WbAesDirTables& t = decipher ? testset::kTables.dec : testset::kTables.enc;
  EXPECT_EQ(kOk, ProcessBlock(t, decipher, in.data(), roundKeys, rounds, out.data()));
  Bytes ref(16);
  EXPECT_EQ(kOk, ReferenceBlock(t, decipher, in.data(), roundKeys, rounds, ref.data()));
  EXPECT_EQ(ref, out) << "optimised block differs from the stage composition";
  return out;
}

struct KnownAnswer {
  int bits;
  const char* key;
  const char* cipher;
};

// FIPS-197 appendix C: plaintext 00112233...eeff, key 000102... of each size.
const KnownAnswer kFips197[] = {
    {128, "000102030405060708090a0b0c0d0e0f", "69c4e0d86a7b0430d8cdb78070b4c55a"},
    {192, "000102030405060708090a0b0c0d0e0f1011121314151617", "dda97ca4864cdfe06eaf70a0ec0d7191"},
    {256, "000102030405060708090a0b0c0d0e0f101112131415161718191a1b1c1d1e1f",
     "8ea2b7ca516745bfeafc49904b496089"},
};

TEST(WbAesTestSet, Fips197AppendixCBothDirections) {
  const Bytes plain = Hex("00112233445566778899aabbccddeeff");
  for (const auto& v : kFips197) {
    SCOPED_TRACE(v.bits);
    const Bytes key = Hex(v.key);
    const Bytes cipher = Hex(v.cipher);
    EXPECT_EQ(cipher, Block(false, EncKeyMaterial(key.data(), v.bits), v.bits, plain));
    EXPECT_EQ(plain, Block(true, DecKeyMaterial(key.data(), v.bits), v.bits, cipher));

    // The same through the ECB mode functions.
    Bytes out(16);
    int outLen = 16;
    const auto km = EncKeyMaterial(key.data(), v.bits);
    ASSERT_EQ(kOk, EcbEncrypt(testset::kTables, plain.data(), 16, out.data(), &outLen, v.bits,
                              km.data()));
    EXPECT_EQ(cipher, out);
  }
}

TEST(WbAesTestSet, RandomBlocksMatchOpenSsl) {
  std::mt19937 rng(1197);
  for (int i = 0; i < 300; ++i) {
    const int bits = 128 + 64 * (i % 3);
    const Bytes key = RandomBytes(rng, static_cast<std::size_t>(bits / 8));
    const Bytes plain = RandomBytes(rng, 16);
    const Bytes expect = OpenSslAes(true, false, false, key.data(), bits, nullptr, plain);
    ASSERT_EQ(expect, Block(false, EncKeyMaterial(key.data(), bits), bits, plain)) << i;
    ASSERT_EQ(plain, Block(true, DecKeyMaterial(key.data(), bits), bits, expect)) << i;
  }
}

// Zero padding as the white-box modes do it: the input followed by zero
// bytes up to a multiple of 16.
Bytes ZeroPadded(Bytes b) {
  b.resize((b.size() + 15) / 16 * 16, 0);
  return b;
}

TEST(WbAesTestSet, ModesMatchOpenSslForRandomKeysAndLengths) {
  std::mt19937 rng(4242);
  for (int i = 0; i < 240; ++i) {
    const int bits = 128 + 64 * (i % 3);
    const bool cbc = (i / 3) % 2 == 1;
    const bool pkcs7 = (i / 6) % 2 == 1;
    SCOPED_TRACE("case " + std::to_string(i) + " bits " + std::to_string(bits) +
                 (cbc ? " cbc" : " ecb") + (pkcs7 ? " pkcs7" : " zero"));
    const Bytes key = RandomBytes(rng, static_cast<std::size_t>(bits / 8));
    const Bytes iv = RandomBytes(rng, 16);
    const std::size_t len = rng() % 200;
    const Bytes plain = RandomBytes(rng, len);
    const auto ekm = EncKeyMaterial(key.data(), bits);
    const auto dkm = DecKeyMaterial(key.data(), bits);

    const Bytes expect =
        pkcs7 ? OpenSslAes(true, cbc, true, key.data(), bits, iv.data(), plain)
              : OpenSslAes(true, cbc, false, key.data(), bits, iv.data(), ZeroPadded(plain));
    Bytes cipher(len + 32, 0xEE);
    int outLen = static_cast<int>(cipher.size());
    const int inLen = static_cast<int>(len);
    int rc;
    if (cbc) {
      rc = pkcs7 ? CbcEncryptPkcs7(testset::kTables, Data(plain), inLen, cipher.data(), &outLen,
                                   bits, ekm.data(), iv.data())
                 : CbcEncrypt(testset::kTables, Data(plain), inLen, cipher.data(), &outLen, bits,
                              ekm.data(), iv.data());
    } else {
      rc = pkcs7 ? EcbEncryptPkcs7(testset::kTables, Data(plain), inLen, cipher.data(), &outLen,
                                   bits, ekm.data())
                 : EcbEncrypt(testset::kTables, Data(plain), inLen, cipher.data(), &outLen, bits,
                              ekm.data());
    }
    ASSERT_EQ(kOk, rc);
    ASSERT_EQ(expect.size(), static_cast<std::size_t>(outLen));
    cipher.resize(static_cast<std::size_t>(outLen));
    ASSERT_EQ(expect, cipher);

    // Deciphering OpenSSL's output.
    Bytes back(expect.size() + 16);
    int backLen = static_cast<int>(back.size());
    const int cLen = static_cast<int>(expect.size());
    if (cbc) {
      rc = pkcs7 ? CbcDecryptPkcs7(testset::kTables, Data(expect), cLen, back.data(), &backLen,
                                   bits, dkm.data(), iv.data())
                 : CbcDecrypt(testset::kTables, Data(expect), cLen, back.data(), &backLen, bits,
                              dkm.data(), iv.data());
    } else {
      rc = pkcs7 ? EcbDecryptPkcs7(testset::kTables, Data(expect), cLen, back.data(), &backLen,
                                   bits, dkm.data())
                 : EcbDecrypt(testset::kTables, Data(expect), cLen, back.data(), &backLen, bits,
                              dkm.data());
    }
    ASSERT_EQ(kOk, rc);
    if (pkcs7) {
      ASSERT_EQ(static_cast<int>(len), backLen);
      back.resize(len);
      EXPECT_EQ(plain, back);
    } else {
      ASSERT_EQ(cLen, backLen);
      back.resize(static_cast<std::size_t>(cLen));
      EXPECT_EQ(ZeroPadded(plain), back);
    }
  }
}

// Long inputs go through the engine's multi-block paths; OpenSSL agrees on
// every block, not only on the first few.
TEST(WbAesTestSet, LongInputsMatchOpenSsl) {
  std::mt19937 rng(77);
  for (std::size_t blocks : {1u, 2u, 7u, 63u, 64u, 65u, 130u, 257u}) {
    for (int bits : {128, 192, 256}) {
      SCOPED_TRACE(std::to_string(blocks) + " blocks, " + std::to_string(bits) + " bits");
      const Bytes key = RandomBytes(rng, static_cast<std::size_t>(bits / 8));
      const Bytes iv = RandomBytes(rng, 16);
      const Bytes plain = RandomBytes(rng, 16 * blocks);
      const auto ekm = EncKeyMaterial(key.data(), bits);
      const auto dkm = DecKeyMaterial(key.data(), bits);
      const int n = static_cast<int>(plain.size());
      for (bool cbc : {false, true}) {
        const Bytes cipher = OpenSslAes(true, cbc, false, key.data(), bits, iv.data(), plain);
        Bytes out(plain.size());
        int outLen = n;
        ASSERT_EQ(kOk, cbc ? CbcEncrypt(testset::kTables, plain.data(), n, out.data(), &outLen,
                                        bits, ekm.data(), iv.data())
                           : EcbEncrypt(testset::kTables, plain.data(), n, out.data(), &outLen,
                                        bits, ekm.data()));
        EXPECT_EQ(cipher, out);
        outLen = n;
        ASSERT_EQ(kOk, cbc ? CbcDecrypt(testset::kTables, cipher.data(), n, out.data(), &outLen,
                                        bits, dkm.data(), iv.data())
                           : EcbDecrypt(testset::kTables, cipher.data(), n, out.data(), &outLen,
                                        bits, dkm.data()));
        EXPECT_EQ(plain, out);
      }
    }
  }
}

}  // namespace
}  // namespace wbaes
}  // namespace OxConfigMgr
