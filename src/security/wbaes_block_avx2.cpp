// AVX2 block engine (x86-64 with AVX2, checked at run time): the engine of
// processors without AVX-512. Same stages, same arithmetic and therefore the
// same results as the portable engine in wbaes_block.cpp.
//
// Every block goes through tables III and IV fused in advance, as the
// AVX-512 engine's single blocks do, with 16-entry byte shuffles (vpshufb)
// in place of the 64-entry ones: a biased line entry 16i + v addresses
// entry v of output i's line, and vpshufb reads only the low four bits
// within each 128-bit lane, so with output i's line in lane i the three
// combining steps and the next key mixing compose without arithmetic. Per
// column and nibble half, the four line loads are independent of one
// another; only two shuffles sit between them and the lookup of the start
// value. Runs of blocks (ECB, CBC deciphering) interleave several blocks
// column by column so that one block's loads overlap another's shuffles.
//
// Tried and dropped, as they did not gain on 16 KiB runs: the low nibbles
// through the portable byte-load chain beside the shuffled high nibbles
// (0.6x), the key rows loaded once per group (no change), prefetching the
// next column's lines (0.85x). A block-sliced path as in the AVX-512 engine
// was not tried: without 128-entry in-register lookups each 256-entry lookup
// of tables III and V takes sixteen shuffles. Nothing branches on key or
// data.
#include "security/wbaes_block.h"

#ifdef OXCFG_WBAES_HAVE_AVX2

#include <cstdint>
#include <cstring>

#include <immintrin.h>

#define OXCFG_WBAES_AVX2 __attribute__((target("avx2")))

namespace OxConfigMgr {
namespace wbaes {
namespace {

// Blocks of a run handled together; see Group. Measured (16 KiB ECB):
// 2 blocks 0.85x, 4 blocks 0.97x the speed of 8.
constexpr std::size_t kInterleave = 8;

struct alignas(32) Mask32 {
  std::uint8_t v[32];
};

// Which result byte of a 32-byte half (outputs 2v and 2v + 1, one per
// 128-bit lane) holds its output: byte 2v + lane of that lane.
constexpr Mask32 ResultMask(int v) {
  Mask32 m{};
  m.v[2 * v] = 0xFF;
  m.v[16 + 2 * v + 1] = 0xFF;
  return m;
}
constexpr Mask32 kResultMask[2] = {ResultMask(0), ResultMask(1)};

OXCFG_WBAES_AVX2 inline __m256i Load(const void* p) {
  return _mm256_load_si256(static_cast<const __m256i*>(p));
}

// vpshufb: byte k of lane L of the result is table's lane L entry idx & 15.
OXCFG_WBAES_AVX2 inline __m256i Lookup16(__m256i table, __m256i idx) {
  return _mm256_shuffle_epi8(table, idx);
}

// Column c's four outputs of one inner round, key-mixed with the next round
// key's rows into mixed. Per nibble half, the 64-byte lines are handled as
// two 32-byte halves (outputs 0 and 1, outputs 2 and 3). Composing as
// (K o L3) o (L2 o L1) keeps two shuffles between the loads and the start
// value's lookup; the start bytes (16i + nibble) are broadcast to every
// lane, so lane i of each half picks its own output's start.
OXCFG_WBAES_AVX2 inline void ColumnAvx2(const ColumnLines& l,
                                        const std::uint8_t (&rows)[2][16][16], int c,
                                        std::uint8_t* mixed) {
  __m256i acc = _mm256_setzero_si256();
#pragma GCC unroll 2
  for (int h = 0; h < 2; ++h) {
    std::uint32_t start;
    std::memcpy(&start, l.start + 4 * h, sizeof start);
    const __m256i idx = _mm256_set1_epi32(static_cast<int>(start));
#pragma GCC unroll 2
    for (int v = 0; v < 2; ++v) {
      const __m256i keyed = Lookup16(Load(rows[h][4 * c] + 32 * v), Load(l.step[2][h] + 32 * v));
      const __m256i first = Lookup16(Load(l.step[1][h] + 32 * v), Load(l.step[0][h] + 32 * v));
      const __m256i out = Lookup16(Lookup16(keyed, first), idx);
      acc = _mm256_or_si256(acc, _mm256_and_si256(out, Load(kResultMask[v].v)));
    }
  }
  const __m128i both =
      _mm_or_si128(_mm256_castsi256_si128(acc), _mm256_extracti128_si256(acc, 1));
  const int word = _mm_cvtsi128_si32(both);
  std::memcpy(mixed, &word, sizeof word);
}

template <bool kDecipher, bool kChained>
OXCFG_WBAES_AVX2 void SingleBlock(const WbAesDirTables& t, const PreparedKey& k,
                                  const std::uint8_t* in, const std::uint8_t* chain,
                                  std::uint8_t* out) {
  alignas(16) std::uint8_t state[2][16];
  EnterBlock<kChained>(t, k, in, chain, state[0]);
  int cur = 0;
  for (int j = 0; j + 1 < k.rounds; ++j, cur ^= 1) {
#pragma GCC unroll 4
    for (int c = 0; c < 4; ++c) {
      ColumnAvx2(SelectColumn<kDecipher>(*k.derived, state[cur], c), k.rows[j + 1], c,
                        state[cur ^ 1] + 4 * c);
    }
  }
  LeaveBlock<kDecipher>(t, k, state[cur], out);
}

// N independent blocks: all of the group's input is read before any of its
// output is written, so in-place runs are safe.
template <bool kDecipher, std::size_t N>
OXCFG_WBAES_AVX2 void Group(const WbAesDirTables& t, const PreparedKey& k, const std::uint8_t* in,
                            std::uint8_t* out) {
  alignas(16) std::uint8_t state[2][N][16];
  for (std::size_t n = 0; n < N; ++n) EnterBlock<false>(t, k, in + 16 * n, nullptr, state[0][n]);
  int cur = 0;
  for (int j = 0; j + 1 < k.rounds; ++j, cur ^= 1) {
#pragma GCC unroll 4
    for (int c = 0; c < 4; ++c) {
      for (std::size_t n = 0; n < N; ++n) {
        ColumnAvx2(SelectColumn<kDecipher>(*k.derived, state[cur][n], c),
                                k.rows[j + 1], c, state[cur ^ 1][n] + 4 * c);
      }
    }
  }
  for (std::size_t n = 0; n < N; ++n) LeaveBlock<kDecipher>(t, k, state[cur][n], out + 16 * n);
}

template <bool kDecipher>
OXCFG_WBAES_AVX2 void Run(const WbAesDirTables& t, const PreparedKey& k, const std::uint8_t* in,
                          std::uint8_t* out, std::size_t blocks) {
  for (; blocks >= kInterleave; blocks -= kInterleave, in += 16 * kInterleave,
                                out += 16 * kInterleave) {
    Group<kDecipher, kInterleave>(t, k, in, out);
  }
  for (; blocks > 0; --blocks, in += 16, out += 16) {
    SingleBlock<kDecipher, false>(t, k, in, nullptr, out);
  }
}

}  // namespace

bool CpuHasAvx2Engine() {
  __builtin_cpu_init();
  return __builtin_cpu_supports("avx2");
}

void ProcessBlocksAvx2(const WbAesDirTables& tables, bool decipher, const PreparedKey& key,
                       const std::uint8_t* in, std::uint8_t* out, std::size_t blocks) {
  if (decipher) {
    Run<true>(tables, key, in, out, blocks);
  } else {
    Run<false>(tables, key, in, out, blocks);
  }
}

void EncipherChainAvx2(const WbAesDirTables& tables, const PreparedKey& key,
                       const std::uint8_t* iv, const std::uint8_t* in, std::uint8_t* out,
                       std::size_t blocks) {
  const std::uint8_t* chain = iv;
  for (std::size_t b = 0; b < blocks; ++b) {
    SingleBlock<false, true>(tables, key, in + 16 * b, chain, out + 16 * b);
    chain = out + 16 * b;
  }
}

}  // namespace wbaes
}  // namespace OxConfigMgr

#endif  // OXCFG_WBAES_HAVE_AVX2
