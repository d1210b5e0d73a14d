// Under the test table set (identity external encodings) the white-box cipher
// must be AES exactly: known-answer vectors, then random keys and data
// against OpenSSL in every mode and direction.
#include "security/wbaes_block.h"
#include "security/wbaes_internal.h"
#include "security/wbaes_test_support.h"

#include <gtest/gtest.h>

#include <ostream>
#include <random>
#include <string>

namespace OxConfigMgr {
namespace wbaes {

// Found by argument-dependent lookup: names the parameter in test output.
static void PrintTo(Engine engine, std::ostream* os) { *os << EngineName(engine); }

namespace {

using testsupport::Bytes;
using testsupport::MakeKeyMaterial;
using testsupport::OpenSslAes;

Bytes Hex(const std::string& hex) {
  Bytes out;
  for (std::size_t i = 0; i + 1 < hex.size(); i += 2)
    out.push_back(static_cast<std::uint8_t>(std::stoul(hex.substr(i, 2), nullptr, 16)));
  return out;
}

// One block through init_key and the block engine, as the modes use them.
Bytes Block(bool decipher, const Bytes& key, const Bytes& in) {
  const int bits = static_cast<int>(key.size()) * 8, rounds = bits / 32 + 6;
  std::uint8_t roundKeys[kRoundKeyAreaSize];
  EXPECT_EQ(kOk, init_key(MakeKeyMaterial(decipher, key.data(), bits).data(), rounds, roundKeys));
  Bytes out(16);
  EXPECT_EQ(kOk, ProcessBlock(decipher ? testset::kTables.dec : testset::kTables.enc, decipher,
                              in.data(), roundKeys, rounds, out.data()));
  return out;
}

// Every case runs on each engine the processor has, through the modes as
// callers reach them (the engine forced for the test's process).
class WbAesTestSet : public ::testing::TestWithParam<Engine> {
 protected:
  void SetUp() override {
    if (!ForceEngine(GetParam())) GTEST_SKIP() << "engine not supported by this processor";
  }
  void TearDown() override { ForceEngine(Engine::kAuto); }
};

// FIPS-197 appendix C: plaintext 00112233...eeff, key 000102... of each size.
TEST_P(WbAesTestSet, Fips197AppendixCBothDirections) {
  const Bytes plain = Hex("00112233445566778899aabbccddeeff");
  const std::pair<const char*, const char*> vectors[] = {
      {"000102030405060708090a0b0c0d0e0f", "69c4e0d86a7b0430d8cdb78070b4c55a"},
      {"000102030405060708090a0b0c0d0e0f1011121314151617", "dda97ca4864cdfe06eaf70a0ec0d7191"},
      {"000102030405060708090a0b0c0d0e0f101112131415161718191a1b1c1d1e1f",
       "8ea2b7ca516745bfeafc49904b496089"}};
  for (const auto& v : vectors) {
    SCOPED_TRACE(v.first);
    const Bytes key = Hex(v.first), cipher = Hex(v.second);
    EXPECT_EQ(cipher, Block(false, key, plain));
    EXPECT_EQ(plain, Block(true, key, cipher));
  }
}

// Random keys, IVs and lengths in every mode, both directions: enciphering
// must give OpenSSL's ciphertext, and deciphering OpenSSL's ciphertext must
// give the plaintext back (zero-padded for the unpadded modes). Lengths
// include the empty input, whole blocks and runs long enough for the
// engine's batches.
TEST_P(WbAesTestSet, ModesMatchOpenSslForRandomKeysAndLengths) {
  std::mt19937 rng(4242);
  for (int i = 0; i < 360; ++i) {
    const int bits = 128 + 64 * (i % 3);
    const testsupport::Mode& m = testsupport::kModes[(i / 3) % 4];
    const unsigned lengthClass = rng() % 8;
    const std::size_t len = lengthClass == 0   ? 16 * (rng() % 3)
                            : lengthClass == 1 ? 16 * (60 + rng() % 200) + rng() % 16
                                               : rng() % 200;
    SCOPED_TRACE("case " + std::to_string(i) + ", " + m.name + ", " + std::to_string(bits) +
                 " bits, length " + std::to_string(len));
    const Bytes key = testsupport::Random(rng, static_cast<std::size_t>(bits / 8));
    const Bytes iv = testsupport::Random(rng, 16);
    Bytes plain = testsupport::Random(rng, len + 1);  // never empty storage
    plain.pop_back();
    Bytes padded = plain;
    if (!m.pkcs7) padded.resize((len + 15) / 16 * 16, 0);
    const Bytes expect = OpenSslAes(true, m.cbc, m.pkcs7, key.data(), bits, iv.data(), padded);

    Bytes cipher(len + 32, 0xEE);
    int n = static_cast<int>(cipher.size());
    ASSERT_EQ(kOk, testsupport::RunMode(
                       &testset::kTables, m, false, plain.data(), static_cast<int>(len),
                       cipher.data(), &n, bits, MakeKeyMaterial(false, key.data(), bits).data(),
                       iv.data()));
    ASSERT_EQ(expect.size(), static_cast<std::size_t>(n));
    cipher.resize(expect.size());
    ASSERT_EQ(expect, cipher);

    Bytes back(expect.size() + 16);
    n = static_cast<int>(back.size());
    ASSERT_EQ(kOk, testsupport::RunMode(&testset::kTables, m, true, cipher.data(),
                                        static_cast<int>(cipher.size()), back.data(), &n, bits,
                                        MakeKeyMaterial(true, key.data(), bits).data(), iv.data()));
    ASSERT_EQ(padded.size(), static_cast<std::size_t>(n));
    back.resize(padded.size());
    EXPECT_EQ(padded, back);
  }
}

INSTANTIATE_TEST_SUITE_P(Engines, WbAesTestSet,
                         ::testing::Values(Engine::kPortable, Engine::kAvx2, Engine::kAvx512),
                         [](const ::testing::TestParamInfo<Engine>& info) {
                           return std::string(EngineName(info.param));
                         });

}  // namespace
}  // namespace wbaes
}  // namespace OxConfigMgr
