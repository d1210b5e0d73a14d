// The white-box cipher's stage functions, and the optimised engines checked
// against the literal composition of those stages on arbitrary table
// contents (not only on generated, well-formed tables).
#include "security/wbaes_block.h"
#include "security/wbaes_internal.h"

#include <gtest/gtest.h>

#include <array>
#include <cstring>
#include <ostream>
#include <random>
#include <string>
#include <vector>

namespace OxConfigMgr {
namespace wbaes {

static const char* EngineName(Engine engine) {
  switch (engine) {
    case Engine::kAuto: return "Auto";
    case Engine::kPortable: return "Portable";
    case Engine::kAvx512: return "Avx512";
  }
  return "Unknown";
}

// Found by argument-dependent lookup: names the parameter in test output.
static void PrintTo(Engine engine, std::ostream* os) { *os << EngineName(engine); }

namespace {

using Bytes = std::vector<std::uint8_t>;

Bytes Random(std::mt19937& rng, std::size_t n) {
  Bytes b(n);
  for (auto& x : b) x = static_cast<std::uint8_t>(rng());
  return b;
}

TEST(WbAesStages, InitKeyUnmasksByPositionModThreeAndTransposes) {
  std::uint8_t km[kKeyMaterialSize];
  km[0] = 0x11;
  km[1] = 0x22;
  km[2] = 0x44;
  km[3] = 0xEE;  // unused
  for (std::size_t i = 4; i < kKeyMaterialSize; ++i) km[i] = static_cast<std::uint8_t>(i);
  std::uint8_t rk[kRoundKeyAreaSize];
  std::memset(rk, 0xCC, sizeof rk);
  ASSERT_EQ(kOk, init_key(km, 14, rk));
  // Round key 1, row 2, column 3 comes from i = 4 + 16 + 12 + 2 = 34,
  // masked with byte 34 % 3 = 1.
  EXPECT_EQ(34 ^ 0x22, rk[16 * 1 + 4 * 2 + 3]);
  // Round key 0, row 1, column 0: i = 5, mask byte 2.
  EXPECT_EQ(5 ^ 0x44, rk[4]);
  // Round key 14, row 3, column 3: i = 243, mask byte 0.
  EXPECT_EQ(243 ^ 0x11, rk[16 * 14 + 15]);

  // Ten rounds unpack eleven round keys and leave the rest alone.
  std::memset(rk, 0xCC, sizeof rk);
  ASSERT_EQ(kOk, init_key(km, 10, rk));
  EXPECT_EQ(0xCC, rk[16 * 11]);
  EXPECT_NE(0xCC, rk[16 * 10 + 15]);

  EXPECT_EQ(kErrKeySize, init_key(km, 0, rk));
  EXPECT_EQ(kErrKeySize, init_key(km, 15, rk));
  EXPECT_EQ(kErrNullPointer, init_key(nullptr, 10, rk));
  EXPECT_EQ(kErrNullPointer, init_key(km, 10, nullptr));
}

TEST(WbAesStages, TableIReadsColumnOrderAndKeepsEightBits) {
  std::uint8_t table[kTableISize];
  for (int p = 0; p < 16; ++p) {
    for (int n = 0; n < 16; ++n)
      table[16 * p + n] = static_cast<std::uint8_t>(0xA0 + ((n + p) & 15));
  }
  std::uint8_t in[16];
  for (int i = 0; i < 16; ++i) in[i] = static_cast<std::uint8_t>(0x10 * i + 15 - i);
  std::uint8_t state[16];
  ASSERT_EQ(kOk, do_table_I(in, state, table));
  // Position (row 2, column 1) = 9 reads in[2 + 4] = in[6] = 0x69.
  const std::uint8_t hi = table[16 * 9 + 6];
  const std::uint8_t lo = table[16 * 9 + 9];
  EXPECT_EQ(static_cast<std::uint8_t>((hi << 4) ^ lo), state[9]);
  EXPECT_EQ(kErrNullPointer, do_table_I(nullptr, state, table));
}

TEST(WbAesStages, KeyMixingTakesHighNibblesOfStateKeyEntries) {
  std::mt19937 rng(3);
  const Bytes table = Random(rng, kTableIISize);
  Bytes state = Random(rng, 16);
  const Bytes key = Random(rng, 16);
  const Bytes before = state;
  ASSERT_EQ(kOk, do_table_II(state.data(), key.data(), table.data()));
  for (int p = 0; p < 16; ++p) {
    const std::uint8_t* t = table.data() + 256 * p;
    const int hi = t[(before[p] >> 4) * 16 + (key[p] >> 4)] >> 4;
    const int lo = t[(before[p] & 15) * 16 + (key[p] & 15)] >> 4;
    EXPECT_EQ(hi * 16 + lo, state[p]) << p;
  }
  Bytes again = before;
  ASSERT_EQ(kOk, do_table_VI(again.data(), key.data(), table.data()));
  EXPECT_EQ(state, again);
  EXPECT_EQ(kErrNullPointer, do_table_key(state.data(), nullptr, table.data()));
}

TEST(WbAesStages, PackedNibbleXor) {
  std::uint8_t table[256];
  for (int i = 0; i < 256; ++i) table[i] = static_cast<std::uint8_t>(i * 37 + 11);
  // Index a * 16 + b: below 128 the low nibble of table[index] ...
  EXPECT_EQ(table[3 * 16 + 9] & 15, do_xor(3, 9, table));
  // ... from 128 on the high nibble of table[index - 128].
  EXPECT_EQ(table[(12 * 16 + 5) - 128] >> 4, do_xor(12, 5, table));
  // Bytes: high nibbles through the first 128 bytes, low through the second.
  const std::uint8_t r = do_xor_hi_lo(0xA7, 0x3C, table);
  EXPECT_EQ(do_xor(0xA, 0x3, table), r >> 4);
  EXPECT_EQ(do_xor(0x7, 0xC, table + 128), r & 15);
}

TEST(WbAesStages, RotationsAndRowShifts) {
  std::uint8_t w[4] = {1, 2, 3, 4};
  ASSERT_EQ(kOk, rotate_word(w, 1));
  EXPECT_EQ((std::array<std::uint8_t, 4>{2, 3, 4, 1}),
            (std::array<std::uint8_t, 4>{w[0], w[1], w[2], w[3]}));
  EXPECT_EQ(kErrRotation, rotate_word(w, 0));
  EXPECT_EQ(kErrRotation, rotate_word(w, 4));
  EXPECT_EQ(kErrNullPointer, rotate_word(nullptr, 1));

  std::uint8_t s[16];
  for (int i = 0; i < 16; ++i) s[i] = static_cast<std::uint8_t>(i);
  ASSERT_EQ(kOk, shift_rows(s));
  const std::uint8_t shifted[16] = {0, 1, 2, 3, 5, 6, 7, 4, 10, 11, 8, 9, 15, 12, 13, 14};
  EXPECT_EQ(0, std::memcmp(s, shifted, 16));
  ASSERT_EQ(kOk, inv_shift_rows(s));
  for (int i = 0; i < 16; ++i) EXPECT_EQ(i, s[i]);
  EXPECT_EQ(kErrNullPointer, shift_rows(nullptr));
  EXPECT_EQ(kErrNullPointer, inv_shift_rows(nullptr));
}

TEST(WbAesStages, TablesIIIAndIVCombinePartialsOfOneColumn) {
  std::mt19937 rng(5);
  const Bytes t3 = Random(rng, kTableIIISize);
  const Bytes t4 = Random(rng, kTableIVSize);
  const Bytes state = Random(rng, 16);
  std::uint8_t partial[kPartialSize];
  ASSERT_EQ(kOk, do_table_III(state.data(), partial, t3.data()));
  // Partial r of output (i, c) is byte i of position (r, c)'s entry.
  const int r = 2, c = 1, i = 3;
  EXPECT_EQ(t3[4 * (256 * (4 * r + c) + state[4 * r + c]) + i], partial[4 * (4 * i + c) + r]);

  std::uint8_t out[16];
  ASSERT_EQ(kOk, do_table_IV(partial, out, t4.data()));
  const int q = 4 * i + c;
  std::uint8_t acc = partial[4 * q];
  for (int s = 0; s < 3; ++s)
    acc = do_xor_hi_lo(partial[4 * q + s + 1], acc, t4.data() + 256 * (3 * q + s));
  EXPECT_EQ(acc, out[q]);

  EXPECT_EQ(kErrNullPointer, do_table_III(state.data(), nullptr, t3.data()));
  EXPECT_EQ(kErrNullPointer, do_table_IV(partial, out, nullptr));
  EXPECT_EQ(kErrNullPointer, do_table_V(nullptr, t3.data()));
}

// Tables with arbitrary contents: the engines must reproduce the stage
// composition whatever the tables hold.
struct RandomSet {
  Bytes I, II, III, IV, V, VI;
  explicit RandomSet(std::mt19937& rng)
      : I(Random(rng, kTableISize)),
        II(Random(rng, kTableIISize)),
        III(Random(rng, kTableIIISize)),
        IV(Random(rng, kTableIVSize)),
        V(Random(rng, kTableVSize)),
        VI(Random(rng, kTableVISize)) {}
  WbAesDirTables Dir() const {
    return {I.data(), II.data(), III.data(), IV.data(), V.data(), VI.data()};
  }
};

class WbAesEngine : public ::testing::TestWithParam<Engine> {};

TEST_P(WbAesEngine, MatchesStageCompositionOnArbitraryTables) {
  const Engine engine = GetParam();
  if (!EngineAvailable(engine)) GTEST_SKIP() << "engine not supported by this processor";
  std::mt19937 rng(2024);
  for (int trial = 0; trial < 24; ++trial) {
    const RandomSet set(rng);
    const WbAesDirTables t = set.Dir();
    const bool decipher = trial % 2 == 1;
    const int rounds = 1 + trial % 14;
    const Bytes roundKeys = Random(rng, kRoundKeyAreaSize);
    // Counts around the engines' batch sizes; a count of 1 also exercises
    // the set-up without per-call key rows.
    for (std::size_t blocks : {1u, 2u, 3u, 4u, 5u, 63u, 64u, 65u, 131u}) {
      SCOPED_TRACE("trial " + std::to_string(trial) + ", " + std::to_string(blocks) + " blocks");
      const Bytes in = Random(rng, 16 * blocks);
      Bytes expect(in.size());
      for (std::size_t b = 0; b < blocks; ++b) {
        ASSERT_EQ(kOk, ReferenceBlock(t, decipher, in.data() + 16 * b, roundKeys.data(), rounds,
                                      expect.data() + 16 * b));
      }
      PreparedKey key;
      PrepareKey(t, roundKeys.data(), rounds, blocks, &key);
      Bytes out(in.size());
      ProcessBlocks(t, decipher, key, in.data(), out.data(), blocks, engine);
      ASSERT_EQ(expect, out);
      // In place.
      Bytes inplace = in;
      ProcessBlocks(t, decipher, key, inplace.data(), inplace.data(), blocks, engine);
      ASSERT_EQ(expect, inplace);
      WipePreparedKey(&key);
    }
  }
}

INSTANTIATE_TEST_SUITE_P(Engines, WbAesEngine,
                         ::testing::Values(Engine::kAuto, Engine::kPortable, Engine::kAvx512),
                         [](const ::testing::TestParamInfo<Engine>& info) {
                           return std::string(EngineName(info.param));
                         });

TEST(WbAesStages, BlockFunctionsCheckArguments) {
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
