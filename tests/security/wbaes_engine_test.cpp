// The optimised block engines against the literal composition of the stage
// functions, on tables with arbitrary contents (not only generated,
// well-formed ones): both directions, every round count, block counts around
// the engines' batch sizes, out of place and in place.
#include "security/wbaes_block.h"
#include "security/wbaes_internal.h"
#include "security/wbaes_test_support.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <ostream>
#include <random>
#include <string>

namespace OxConfigMgr {
namespace wbaes {

// Found by argument-dependent lookup: names the parameter in test output.
static void PrintTo(Engine engine, std::ostream* os) { *os << EngineName(engine); }

namespace {

using testsupport::Bytes;

class WbAesEngine : public ::testing::TestWithParam<Engine> {};

// A random 4-bit bijection.
std::array<std::uint8_t, 16> RandomNibbleMap(std::mt19937& rng) {
  std::array<std::uint8_t, 16> f;
  for (int i = 0; i < 16; ++i) f[i] = static_cast<std::uint8_t>(i);
  std::shuffle(f.begin(), f.end(), rng);
  return f;
}

// Table IV with every combining step nibble XOR between random encodings,
// as generated sets have it: entry (a, b) = out(x^-1(a) ^ y^-1(b)). With
// `chained` a step reads the accumulator in the encoding the step before
// wrote it in, otherwise in an unrelated one.
void XorStepTables(std::mt19937& rng, bool chained, std::uint8_t* iv) {
  for (int q = 0; q < 16; ++q) {
    for (int h = 0; h < 2; ++h) {
      std::array<std::uint8_t, 16> acc = RandomNibbleMap(rng);
      for (int st = 0; st < 3; ++st) {
        const auto x = RandomNibbleMap(rng), out = RandomNibbleMap(rng);
        std::array<std::uint8_t, 16> xInv, accInv;
        for (int i = 0; i < 16; ++i) {
          xInv[x[i]] = static_cast<std::uint8_t>(i);
          accInv[acc[i]] = static_cast<std::uint8_t>(i);
        }
        std::uint8_t u[256];
        for (int a = 0; a < 16; ++a) {
          for (int b = 0; b < 16; ++b) u[16 * a + b] = out[xInv[a] ^ accInv[b]];
        }
        std::uint8_t* t = iv + 256 * (3 * q + st) + 128 * h;
        for (int j = 0; j < 128; ++j) t[j] = static_cast<std::uint8_t>(u[j] | u[j + 128] << 4);
        acc = chained ? out : RandomNibbleMap(rng);
      }
    }
  }
}

TEST_P(WbAesEngine, MatchesStageCompositionOnArbitraryTables) {
  const Engine engine = GetParam();
  if (!EngineAvailable(engine)) GTEST_SKIP() << "engine not supported by this processor";
  std::mt19937 rng(2024);
  for (int trial = 0; trial < 28; ++trial) {
    Bytes data = testsupport::Random(rng, kTableISize + kTableIISize + kTableIIISize +
                                              kTableIVSize + kTableVSize + kTableVISize);
    // Table IV of arbitrary bytes, or of nibble XOR steps whose encodings
    // chain (engines may then sum the steps) or do not.
    const int kind = trial / 2 % 3;
    if (kind != 0) {
      XorStepTables(rng, kind == 1, data.data() + kTableISize + kTableIISize + kTableIIISize);
    }
    const std::uint8_t* p = data.data();
    const WbAesDirTables t = {p, p + kTableISize, p + kTableISize + kTableIISize,
                              p + kTableISize + kTableIISize + kTableIIISize,
                              p + kTableISize + kTableIISize + kTableIIISize + kTableIVSize,
                              p + data.size() - kTableVISize};
    const bool decipher = trial % 2 == 1;
    const int rounds = 1 + trial / 2;
    const Bytes roundKeys = testsupport::Random(rng, kRoundKeyAreaSize);
    // Around the engines' batch sizes and thresholds: 8 interleaved single
    // blocks; AVX2 sliced from 10 blocks, 32 a batch; AVX-512 sliced from
    // 16 blocks, 64 a batch.
    for (std::size_t blocks :
         {1u, 2u, 9u, 10u, 15u, 16u, 32u, 41u, 42u, 63u, 64u, 65u, 131u}) {
      SCOPED_TRACE("trial " + std::to_string(trial) + ", " + std::to_string(blocks) + " blocks");
      const Bytes in = testsupport::Random(rng, 16 * blocks);
      Bytes expect(in.size());
      for (std::size_t b = 0; b < blocks; ++b) {
        ASSERT_EQ(kOk, ReferenceBlock(t, decipher, in.data() + 16 * b, roundKeys.data(), rounds,
                                      expect.data() + 16 * b));
      }
      PreparedKey key;
      PrepareKey(t, roundKeys.data(), rounds, &key);
      Bytes out(in.size()), inPlace = in;
      ProcessBlocks(t, decipher, key, in.data(), out.data(), blocks, engine);
      ProcessBlocks(t, decipher, key, inPlace.data(), inPlace.data(), blocks, engine);
      ASSERT_EQ(expect, out);
      ASSERT_EQ(expect, inPlace);
      if (!decipher) {
        // CBC chaining: block b is enciphered from in[b] XOR output b - 1.
        const Bytes iv = testsupport::Random(rng, 16);
        Bytes chained(in.size());
        const std::uint8_t* prev = iv.data();
        for (std::size_t b = 0; b < blocks; ++b) {
          std::uint8_t x[16];
          for (int i = 0; i < 16; ++i) x[i] = in[16 * b + i] ^ prev[i];
          ASSERT_EQ(kOk, ReferenceBlock(t, false, x, roundKeys.data(), rounds, &chained[16 * b]));
          prev = &chained[16 * b];
        }
        EncipherChain(t, key, iv.data(), in.data(), out.data(), blocks, engine);
        inPlace = in;
        EncipherChain(t, key, iv.data(), inPlace.data(), inPlace.data(), blocks, engine);
        ASSERT_EQ(chained, out);
        ASSERT_EQ(chained, inPlace);
      }
      WipePreparedKey(&key);
      if (blocks == 1 && engine == Engine::kAuto) {
        ASSERT_EQ(kOk, ProcessBlock(t, decipher, in.data(), roundKeys.data(), rounds, out.data()));
        ASSERT_EQ(expect, out);
      }
    }
  }
}

// The same on the linked-in tables, whose derived tables are the cached
// ones the exported functions use.
TEST_P(WbAesEngine, MatchesStageCompositionOnProductionTables) {
  const Engine engine = GetParam();
  if (!EngineAvailable(engine)) GTEST_SKIP() << "engine not supported by this processor";
  std::mt19937 rng(77);
  for (const bool decipher : {false, true}) {
    const WbAesDirTables& t = decipher ? kProductionTables.dec : kProductionTables.enc;
    for (const int rounds : {10, 12, 14}) {
      const Bytes roundKeys = testsupport::Random(rng, kRoundKeyAreaSize);
      PreparedKey key;
      PrepareKey(t, roundKeys.data(), rounds, &key);
      for (const std::size_t blocks : {1u, 9u, 17u, 26u, 58u, 64u, 131u}) {
        SCOPED_TRACE(std::to_string(rounds) + " rounds, " + std::to_string(blocks) + " blocks");
        const Bytes in = testsupport::Random(rng, 16 * blocks);
        Bytes expect(in.size()), chained(in.size()), out(in.size());
        const Bytes iv = testsupport::Random(rng, 16);
        for (std::size_t b = 0; b < blocks; ++b) {
          ASSERT_EQ(kOk, ReferenceBlock(t, decipher, &in[16 * b], roundKeys.data(), rounds,
                                        &expect[16 * b]));
          std::uint8_t x[16];
          for (int i = 0; i < 16; ++i) x[i] = in[16 * b + i] ^ (b == 0 ? iv[i] : chained[16 * b - 16 + i]);
          ASSERT_EQ(kOk, ReferenceBlock(t, decipher, x, roundKeys.data(), rounds, &chained[16 * b]));
        }
        ProcessBlocks(t, decipher, key, in.data(), out.data(), blocks, engine);
        ASSERT_EQ(expect, out);
        if (!decipher) {
          EncipherChain(t, key, iv.data(), in.data(), out.data(), blocks, engine);
          ASSERT_EQ(chained, out);
        }
      }
      WipePreparedKey(&key);
    }
  }
}

INSTANTIATE_TEST_SUITE_P(Engines, WbAesEngine,
                         ::testing::Values(Engine::kAuto, Engine::kPortable, Engine::kAvx2,
                                           Engine::kAvx512),
                         [](const ::testing::TestParamInfo<Engine>& info) {
                           return std::string(EngineName(info.param));
                         });

// kAuto stands for the fastest engine the processor runs unless a test or
// benchmark forces another; an engine the processor lacks cannot be forced.
TEST(WbAesEngine, SelectionPrefersTheWidestAvailableAndForcingIsChecked) {
  const Engine best = EngineAvailable(Engine::kAvx512) ? Engine::kAvx512
                      : EngineAvailable(Engine::kAvx2) ? Engine::kAvx2
                                                       : Engine::kPortable;
  EXPECT_EQ(best, SelectedEngine());
  for (Engine e : {Engine::kPortable, Engine::kAvx2, Engine::kAvx512}) {
    SCOPED_TRACE(EngineName(e));
    EXPECT_EQ(EngineAvailable(e), ForceEngine(e));
    EXPECT_EQ(EngineAvailable(e) ? e : Engine::kPortable, SelectedEngine());
    ForceEngine(Engine::kPortable);
  }
  EXPECT_TRUE(ForceEngine(Engine::kAuto));
  EXPECT_EQ(best, SelectedEngine());
#if !defined(__x86_64__)
  EXPECT_EQ(Engine::kPortable, SelectedEngine());
#endif
}

TEST(WbAesEngine, BlockFunctionsCheckArguments) {
  std::uint8_t block[16] = {};
  std::uint8_t rk[kRoundKeyAreaSize] = {};
  EXPECT_EQ(kErrNullPointer, nyxwbaes_dynamic_encrypt_block_128(nullptr, rk, 14, block));
  EXPECT_EQ(kErrNullPointer, nyxwbaes_dynamic_decrypt_block_128(block, nullptr, 14, block));
  EXPECT_EQ(kErrKeySize, nyxwbaes_dynamic_encrypt_block_128(block, rk, 0, block));
  EXPECT_EQ(kErrKeySize, nyxwbaes_dynamic_decrypt_block_128(block, rk, 15, block));
}

}  // namespace
}  // namespace wbaes
}  // namespace OxConfigMgr
