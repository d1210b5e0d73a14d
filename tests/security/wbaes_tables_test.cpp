// Properties of the generated table sets: every lookup of an encoded value is
// a bijection where decoding depends on it, neither the S-box nor the
// production round keys appear in the data, and the production key material
// pair belongs to one AES-256 key.
#include "security/wbaes_internal.h"
#include "security/wbaes_test_support.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <bitset>
#include <cstring>
#include <string>
#include <vector>

namespace OxConfigMgr {
namespace wbaes {
namespace {

using Bytes = std::vector<std::uint8_t>;

struct Table {
  std::string name;
  const std::uint8_t* data;
  std::size_t size;
};

std::vector<Table> AllTables(const WbAesTables& set) {
  std::vector<Table> out;
  for (int d = 0; d < 2; ++d) {
    const WbAesDirTables& t = d == 0 ? set.enc : set.dec;
    const std::string sfx = d == 0 ? "" : "_dec";
    out.push_back({"table_I" + sfx, t.I, kTableISize});
    out.push_back({"table_II" + sfx, t.II, kTableIISize});
    out.push_back({"table_III" + sfx, t.III, kTableIIISize});
    out.push_back({"table_IV" + sfx, t.IV, kTableIVSize});
    out.push_back({"table_V" + sfx, t.V, kTableVSize});
    out.push_back({"table_VI" + sfx, t.VI, kTableVISize});
  }
  return out;
}

template <std::size_t N, typename F>
bool IsPermutation(F value) {
  std::bitset<N> seen;
  for (std::size_t i = 0; i < N; ++i) {
    const std::size_t v = value(i);
    if (v >= N || seen[v]) return false;
    seen[v] = true;
  }
  return true;
}

void ExpectBijections(const WbAesDirTables& t, const std::string& what) {
  SCOPED_TRACE(what);
  for (int p = 0; p < 16; ++p) {
    // Input encoding: a nibble bijection per position, high half zero.
    EXPECT_TRUE(IsPermutation<16>([&](std::size_t n) { return std::size_t{t.I[16 * p + n]}; }))
        << p;
    // Key mixing: for a fixed key nibble, state nibble -> result nibble; for
    // a fixed state nibble, key nibble -> result nibble.
    for (const std::uint8_t* kt : {t.II, t.VI}) {
      const std::uint8_t* row = kt + 256 * p;
      for (int k = 0; k < 16; ++k) {
        EXPECT_TRUE(IsPermutation<16>(
            [&](std::size_t a) { return static_cast<std::size_t>(row[a * 16 + k] >> 4); }));
        EXPECT_TRUE(IsPermutation<16>(
            [&](std::size_t b) { return static_cast<std::size_t>(row[k * 16 + b] >> 4); }));
      }
    }
    // Substitutions: byte bijections, for each output byte of table III.
    EXPECT_TRUE(IsPermutation<256>([&](std::size_t x) { return std::size_t{t.V[256 * p + x]}; }))
        << p;
    for (int i = 0; i < 4; ++i) {
      EXPECT_TRUE(IsPermutation<256>(
          [&](std::size_t x) { return std::size_t{t.III[4 * (256 * p + x) + i]}; }));
    }
  }
  // Combining tables: Latin squares (bijective in each argument).
  for (int q = 0; q < 16; ++q) {
    for (int s = 0; s < 3; ++s) {
      for (int half = 0; half < 2; ++half) {
        const std::uint8_t* nt = t.IV + 256 * (3 * q + s) + 128 * half;
        for (std::uint8_t v = 0; v < 16; ++v) {
          EXPECT_TRUE(IsPermutation<16>([&](std::size_t b) {
            return std::size_t{do_xor(v, static_cast<std::uint8_t>(b), nt)};
          }));
          EXPECT_TRUE(IsPermutation<16>([&](std::size_t a) {
            return std::size_t{do_xor(static_cast<std::uint8_t>(a), v, nt)};
          }));
        }
      }
    }
  }
}

TEST(WbAesTables, EveryEncodedLookupIsABijection) {
  ExpectBijections(kProductionTables.enc, "production enc");
  ExpectBijections(kProductionTables.dec, "production dec");
  ExpectBijections(testset::kTables.enc, "test enc");
  ExpectBijections(testset::kTables.dec, "test dec");
}

bool Contains(const Table& t, const std::uint8_t* needle, std::size_t n, std::size_t stride = 1) {
  for (std::size_t start = 0; start < t.size; ++start) {
    std::size_t i = 0;
    while (i < n && start + i * stride < t.size && t.data[start + i * stride] == needle[i]) ++i;
    if (i == n) return true;
  }
  return false;
}

TEST(WbAesTables, NoSBoxInTheTables) {
  const auto& sbox = testsupport::SBox();
  const auto& inv = testsupport::InvSBox();
  for (const WbAesTables* set : {&kProductionTables, &testset::kTables}) {
    for (const Table& t : AllTables(*set)) {
      // Contiguous, and at table III's entry stride of 4.
      for (std::size_t stride : {1u, 4u}) {
        EXPECT_FALSE(Contains(t, sbox.data(), 256, stride)) << t.name << " stride " << stride;
        EXPECT_FALSE(Contains(t, inv.data(), 256, stride)) << t.name << " stride " << stride;
      }
    }
  }
}

// The 15 round keys behind a key-material block, row by row.
std::vector<Bytes> RoundKeys(const std::uint8_t* keyMaterial) {
  std::uint8_t rk[kRoundKeyAreaSize];
  EXPECT_EQ(kOk, init_key(keyMaterial, 14, rk));
  std::vector<Bytes> keys;
  for (int b = 0; b < 15; ++b) keys.emplace_back(rk + 16 * b, rk + 16 * b + 16);
  return keys;
}

Bytes ColumnOrder(const Bytes& rowMajor) {
  Bytes c(16);
  for (int r = 0; r < 4; ++r)
    for (int col = 0; col < 4; ++col) c[r + 4 * col] = rowMajor[4 * r + col];
  return c;
}

TEST(WbAesTables, ProductionRoundKeysAppearNowhereInClear) {
  for (const std::uint8_t* km : {kProductionKeyEnc, kProductionKeyDec}) {
    EXPECT_TRUE(km[0] != 0 && km[1] != 0 && km[2] != 0) << "mask byte zero";
    for (const Bytes& rk : RoundKeys(km)) {
      for (const Bytes& form : {rk, ColumnOrder(rk)}) {
        // The key material holds each round key masked, never as it is.
        EXPECT_FALSE(Contains({"key material", km, kKeyMaterialSize}, form.data(), 16));
        for (const Table& t : AllTables(kProductionTables)) {
          EXPECT_FALSE(Contains(t, form.data(), 16)) << t.name;
        }
      }
    }
  }
}

// The two production blocks are one AES-256 key: its first two round keys
// are the key, and the deciphering block holds the equivalent inverse
// cipher's schedule of that key. The production set wraps AES in secret
// external encodings, so its output is not plain AES.
TEST(WbAesTables, ProductionKeyMaterialPairBelongsToOneKey) {
  const std::vector<Bytes> enc = RoundKeys(kProductionKeyEnc);
  Bytes key = ColumnOrder(enc[0]);
  const Bytes second = ColumnOrder(enc[1]);
  key.insert(key.end(), second.begin(), second.end());

  const auto rebuiltEnc = testsupport::EncKeyMaterial(key.data(), 256, kProductionKeyEnc);
  const auto rebuiltDec = testsupport::DecKeyMaterial(key.data(), 256, kProductionKeyDec);
  EXPECT_EQ(enc, RoundKeys(rebuiltEnc.data()));
  EXPECT_EQ(RoundKeys(kProductionKeyDec), RoundKeys(rebuiltDec.data()));

  std::uint8_t block[16] = {0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15};
  std::uint8_t rk[kRoundKeyAreaSize];
  ASSERT_EQ(kOk, init_key(kProductionKeyEnc, 14, rk));
  std::uint8_t out[16];
  ASSERT_EQ(kOk, nyxwbaes_dynamic_encrypt_block_128(block, rk, 14, out));
  const Bytes aes = testsupport::OpenSslAes(true, false, false, key.data(), 256, nullptr,
                                            Bytes(block, block + 16));
  EXPECT_NE(aes, Bytes(out, out + 16));

  std::uint8_t back[16];
  ASSERT_EQ(kOk, init_key(kProductionKeyDec, 14, rk));
  ASSERT_EQ(kOk, nyxwbaes_dynamic_decrypt_block_128(out, rk, 14, back));
  EXPECT_EQ(0, std::memcmp(block, back, 16));
}

}  // namespace
}  // namespace wbaes
}  // namespace OxConfigMgr
