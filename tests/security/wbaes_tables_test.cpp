// Properties of the generated table sets: every lookup of an encoded value is
// a bijection where decoding depends on it, and neither the S-box (nor its
// inverse) nor the production round keys appear in the data.
#include "security/wbaes_internal.h"
#include "security/wbaes_test_support.h"

#include <gtest/gtest.h>

#include <bitset>
#include <functional>
#include <string>

namespace OxConfigMgr {
namespace wbaes {
namespace {

using testsupport::Bytes;

// Whether value(0..n-1) is a permutation of 0..n-1.
bool IsPermutation(std::size_t n, const std::function<std::size_t(std::size_t)>& value) {
  std::bitset<256> seen;
  for (std::size_t i = 0; i < n; ++i) {
    const std::size_t v = value(i);
    if (v >= n || seen[v]) return false;
    seen[v] = true;
  }
  return true;
}

TEST(WbAesTables, EveryEncodedLookupIsABijection) {
  for (const WbAesTables* set : {&kProductionTables, &testset::kTables}) {
    for (const WbAesDirTables* t : {&set->enc, &set->dec}) {
      SCOPED_TRACE(std::string(set == &kProductionTables ? "production" : "test") +
                   (t == &set->enc ? " enc" : " dec"));
      int bad = 0;
      for (int p = 0; p < 16; ++p) {
        // Input encoding: a nibble bijection per position, high half zero.
        bad += !IsPermutation(16, [&](std::size_t n) { return t->I[16 * p + n]; });
        // Substitutions: byte bijections, for each output byte of table III.
        bad += !IsPermutation(256, [&](std::size_t x) { return t->V[256 * p + x]; });
        for (int i = 0; i < 4; ++i)
          bad += !IsPermutation(256, [&](std::size_t x) { return t->III[4 * (256 * p + x) + i]; });
        // Key mixing (result in the high nibble) and combining (Latin
        // squares): bijective in each argument when the other is fixed.
        for (int v = 0; v < 16; ++v) {
          for (const std::uint8_t* kt : {t->II + 256 * p, t->VI + 256 * p}) {
            bad += !IsPermutation(16, [&](std::size_t a) { return kt[a * 16 + v] >> 4; });
            bad += !IsPermutation(16, [&](std::size_t b) { return kt[v * 16 + b] >> 4; });
          }
          for (int step = 0; step < 6; ++step) {
            const std::uint8_t* nt = t->IV + 256 * (3 * p + step / 2) + 128 * (step % 2);
            const auto x = static_cast<std::uint8_t>(v);
            bad += !IsPermutation(16, [&](std::size_t b) {
              return do_xor(x, static_cast<std::uint8_t>(b), nt);
            });
            bad += !IsPermutation(16, [&](std::size_t a) {
              return do_xor(static_cast<std::uint8_t>(a), x, nt);
            });
          }
        }
      }
      EXPECT_EQ(0, bad);
    }
  }
}

// Whether `needle` occurs in `hay` at the given stride.
bool Contains(const std::uint8_t* hay, std::size_t size, const std::uint8_t* needle,
              std::size_t n, std::size_t stride) {
  for (std::size_t start = 0; start + (n - 1) * stride < size; ++start) {
    std::size_t i = 0;
    while (i < n && hay[start + i * stride] == needle[i]) ++i;
    if (i == n) return true;
  }
  return false;
}

// Each check runs over all twelve tables of a set.
template <typename F>
void ForEachTable(const WbAesTables& set, F check) {
  const std::size_t sizes[6] = {kTableISize,  kTableIISize, kTableIIISize,
                                kTableIVSize, kTableVSize,  kTableVISize};
  for (const WbAesDirTables* t : {&set.enc, &set.dec}) {
    const std::uint8_t* tables[6] = {t->I, t->II, t->III, t->IV, t->V, t->VI};
    for (int i = 0; i < 6; ++i) {
      SCOPED_TRACE("table " + std::to_string(i + 1) + (t == &set.enc ? "" : " (dec)"));
      check(tables[i], sizes[i]);
    }
  }
}

TEST(WbAesTables, NoSBoxInTheTables) {
  const std::uint8_t* sbox = testsupport::SBoxes().data();
  for (const WbAesTables* set : {&kProductionTables, &testset::kTables}) {
    ForEachTable(*set, [&](const std::uint8_t* data, std::size_t size) {
      // Contiguous, and at table III's entry stride of 4; forward and inverse.
      for (std::size_t stride : {1u, 4u}) {
        EXPECT_FALSE(Contains(data, size, sbox, 256, stride)) << stride;
        EXPECT_FALSE(Contains(data, size, sbox + 256, 256, stride)) << stride;
      }
    });
  }
}

TEST(WbAesTables, ProductionRoundKeysAppearNowhereInClear) {
  for (const std::uint8_t* km : {kProductionKeyEnc, kProductionKeyDec}) {
    EXPECT_TRUE(km[0] != 0 && km[1] != 0 && km[2] != 0) << "mask byte zero";
    std::uint8_t rk[kRoundKeyAreaSize];
    ASSERT_EQ(kOk, init_key(km, 14, rk));
    for (int b = 0; b < 15; ++b) {
      // Row by row as unpacked, and column by column as in the key material.
      Bytes rows(rk + 16 * b, rk + 16 * b + 16), columns(16);
      for (int j = 0; j < 16; ++j) columns[j % 4 * 4 + j / 4] = rows[j];
      for (const Bytes& form : {rows, columns}) {
        EXPECT_FALSE(Contains(km, kKeyMaterialSize, form.data(), 16, 1)) << "round key " << b;
        ForEachTable(kProductionTables, [&](const std::uint8_t* data, std::size_t size) {
          EXPECT_FALSE(Contains(data, size, form.data(), 16, 1)) << "round key " << b;
        });
      }
    }
  }
}

}  // namespace
}  // namespace wbaes
}  // namespace OxConfigMgr
