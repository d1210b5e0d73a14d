// AVX2 block engine (x86-64 with AVX2, checked at run time): the engine of
// processors without AVX-512. Same stages, same arithmetic and therefore the
// same results as the portable engine in wbaes_block.cpp.
//
//  - Runs of blocks (ECB, CBC deciphering) from kSlicedThreshold blocks on
//    go through the block-sliced path: up to 32 blocks at a time, one block
//    per byte lane, one vector per state position, as in the AVX-512 engine
//    but with 16-entry shuffles only. Key mixing and table I are single
//    shuffles. Table III, a 256-entry lookup of four bytes, would take 64
//    shuffles per position; it goes through scalar loads instead, one
//    4-byte load per block and position from a 16 KiB table. Table IV:
//    when each of its combining steps is nibble XOR between encodings (the
//    generator's sets), an output's three steps are one sum of decoded
//    partials, encoded once (DerivedTables::thirdSum, fourthOut); the
//    decodings are folded into table III's words, so the four words of a
//    column are XORed in general registers (ThirdSumWords) and one shuffle
//    per nibble half encodes the sum. Other sets take each combining step
//    as a 16 x 16 nibble table, looked up as 8 shuffles of row pairs
//    (LookupRows' saturating offsets pick the row, the pair's nibble is
//    picked by a blend), table III's loads (ThirdWords) interleaved with
//    the previous column's shuffles so that both kinds of units work.
//  - Single blocks (CBC enciphering, short runs) go through tables III and
//    IV fused in advance, as the AVX-512 engine's single blocks do, with
//    vpshufb in place of the 64-entry lookups: a biased line entry 16i + v
//    addresses entry v of output i's line, and vpshufb reads only the low
//    four bits within each 128-bit lane, so with output i's line in lane i
//    the three combining steps and the next key mixing compose without
//    arithmetic. Per column and nibble half the four line loads are
//    independent of one another; only two shuffles sit between them and the
//    lookup of the start value. Shorter runs interleave several blocks
//    column by column so that one block's loads overlap another's shuffles.
//
// Measured on 16 KiB ECB (sliced path against interleaved single blocks),
// step by step: table III through shuffles as well 0.75x, through scalar
// loads 1.25x (with the scalar lookups of a column all before the previous
// column's shuffles instead of between its outputs 1.1x, by words packed
// into vectors with vpinsrd 1.15x); rows stored twice instead of broadcast
// on load, the XOR of a lookup's rows as a tree, or the combining steps
// ordered step by step across a column's outputs: no gain. The combining
// steps took about 0.6 of that path's time. Summed instead: decoding the
// partials by shuffles (5 per nibble half and output) 1.8x the step by
// step path, the decodings folded into table III's words 1.3x more; the
// sum path is then bound by its scalar loads (two per block, position and
// round: the index byte and the word). Tried there and dropped: table III
// through vpgatherdd (0.97x with shuffled decodings, 0.81x folded), the
// indices read eight at a time from one 8-byte load (0.86x: the byte
// extraction takes the integer units the XORs need).
// Tried and dropped on single blocks: the low
// nibbles through the portable byte-load chain beside the shuffled high
// nibbles (0.6x), the key rows loaded once per group (no change),
// prefetching the next column's lines (0.85x). Loop trip counts and the
// order of loads are fixed; nothing branches on key or data.
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

// From this many blocks on, one sliced batch (its cost does not depend on
// how many of its lanes are used) beats the interleaved single blocks.
// Measured (ECB, table IV summed): a batch costs as much as 9 blocks
// through groups and single blocks; 10 blocks go 1.1x, 12 blocks 1.3x
// faster sliced.
constexpr std::size_t kSlicedThreshold = 10;

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

// ---- block-sliced: one block per byte lane -----------------------------------------

constexpr std::size_t kLanes = 32;

OXCFG_WBAES_AVX2 inline __m256i Set8(int v) { return _mm256_set1_epi8(static_cast<char>(v)); }

// A 16-byte table row in both 128-bit lanes.
OXCFG_WBAES_AVX2 inline __m256i Row(const std::uint8_t* p) {
  return _mm256_broadcastsi128_si256(_mm_loadu_si128(reinterpret_cast<const __m128i*>(p)));
}

OXCFG_WBAES_AVX2 inline __m256i Low(__m256i v) { return _mm256_and_si256(v, Set8(0x0F)); }
OXCFG_WBAES_AVX2 inline __m256i High(__m256i v) { return Low(_mm256_srli_epi16(v, 4)); }

// A 256-entry lookup by x in every lane, the table in the sliced form of
// DerivedTables. Adding 0x70 - 16k with unsigned saturation leaves bit 7
// clear exactly in the lanes whose row (x >> 4, x below 0x80) is at most k,
// and vpshufb zeroes the lanes whose index has bit 7 set: so row k reaches
// the lanes of rows 0..k, and the XOR of the differences they get is their
// own row. The upper half does the same on x ^ 0x80.
OXCFG_WBAES_AVX2 inline __m256i LookupRows(const std::uint8_t (*rows)[16], __m256i x) {
  const __m256i upper = _mm256_xor_si256(x, Set8(0x80));
  __m256i out = _mm256_setzero_si256();
#pragma GCC unroll 8
  for (int k = 0; k < 8; ++k) {
    const __m256i offset = Set8(0x70 - 16 * k);
    out = _mm256_xor_si256(out, Lookup16(Row(rows[k]), _mm256_adds_epu8(x, offset)));
    out = _mm256_xor_si256(out, Lookup16(Row(rows[8 + k]), _mm256_adds_epu8(upper, offset)));
  }
  return out;
}

// One combining step of table IV on nibbles: the new accumulator (0..15)
// from `acc` (0..15) and the partial's nibble, given as `sel` in the
// combining form (bits 4..6 the row pair, bit 7 which of the two). The
// row pairs' indices (row pair << 4 | acc) stay below 0x80, so plain
// offsets select as in LookupRows.
OXCFG_WBAES_AVX2 inline __m256i CombineStep(const std::uint8_t (*rows)[16], __m256i sel,
                                            __m256i acc) {
  const __m256i idx = _mm256_or_si256(_mm256_and_si256(sel, Set8(0x70)), acc);
  __m256i r = _mm256_setzero_si256();
#pragma GCC unroll 8
  for (int j = 0; j < 8; ++j) {
    r = _mm256_xor_si256(r, Lookup16(Row(rows[j]), _mm256_adds_epu8(idx, Set8(0x70 - 16 * j))));
  }
  return Low(_mm256_blendv_epi8(r, _mm256_srli_epi16(r, 4), sel));
}

OXCFG_WBAES_AVX2 inline void Store(void* p, __m256i v) {
  _mm256_store_si256(static_cast<__m256i*>(p), v);
}

// Where lane n's word goes in ThirdWords' output so that BytesOfWords
// returns it in lane n: BytesOfWords takes word 8m + 4L + t to lane
// 16L + 4m + t.
constexpr int WordSlot(int n) { return ((n >> 2) & 3) << 3 | (n >> 4) << 2 | (n & 3); }

// Table III at one position for every lane, with scalar loads: entry x of
// `table` holds the four output bytes, and lane n's x is x[n]. A 256-entry
// lookup costs one load here against sixteen shuffles, and the loads run
// beside the combining steps' shuffles.
OXCFG_WBAES_AVX2 inline void ThirdWords(const std::uint8_t (*table)[4], const std::uint8_t* x,
                                        std::uint8_t (*words)[4]) {
#pragma GCC unroll 16
  for (int n = 0; n < static_cast<int>(kLanes); n += 2) {
    std::uint32_t w0, w1;
    std::memcpy(&w0, table[x[n]], sizeof w0);
    std::memcpy(&w1, table[x[n + 1]], sizeof w1);
    // Lanes n and n + 1 have neighbouring slots: one store for both
    // (1.07x against a store per word; reading the indices eight at a time
    // from one 8-byte load gains as much, both together nothing).
    // The empty asm keeps the words in general registers: without it the
    // compiler packs them into vectors (vpinsrd), taking the shuffle units
    // again.
    std::uint64_t both = w0 | static_cast<std::uint64_t>(w1) << 32;
    __asm__("" : "+r"(both));
    std::memcpy(words[WordSlot(n)], &both, sizeof both);
  }
}

// Tables III and IV's decodings for column c in every lane, with scalar
// loads: per lane, the XOR of the thirdSum entries of the column's four
// positions, whose byte i is then output (i, c)'s sum (both nibbles), in
// ThirdWords' slots.
OXCFG_WBAES_AVX2 inline void ThirdSumWords(const DerivedTables& d, const std::uint8_t (*xs)[kLanes],
                                           int c, std::uint8_t (*words)[4]) {
  auto word = [&](int n) {
    std::uint32_t sum = 0;
#pragma GCC unroll 4
    for (int r = 0; r < 4; ++r) {
      std::uint32_t w;
      std::memcpy(&w, d.thirdSum[4 * r + c][xs[4 * r + c][n]], sizeof w);
      sum ^= w;
    }
    return sum;
  };
#pragma GCC unroll 16
  for (int n = 0; n < static_cast<int>(kLanes); n += 2) {
    std::uint64_t both = word(n) | static_cast<std::uint64_t>(word(n + 1)) << 32;
    __asm__("" : "+r"(both));
    std::memcpy(words[WordSlot(n)], &both, sizeof both);
  }
}

// The four byte vectors of ThirdWords' words: out[i][n] = byte i of lane
// n's word.
OXCFG_WBAES_AVX2 inline void BytesOfWords(const std::uint8_t (*words)[4], __m256i* out) {
  // Per 128-bit lane: the four words' bytes grouped by byte index.
  const __m256i group = _mm256_setr_epi8(0, 4, 8, 12, 1, 5, 9, 13, 2, 6, 10, 14, 3, 7, 11, 15, 0,
                                         4, 8, 12, 1, 5, 9, 13, 2, 6, 10, 14, 3, 7, 11, 15);
  __m256i v[4];
  for (int m = 0; m < 4; ++m) v[m] = Lookup16(Load(words[8 * m]), group);
  const __m256i a0 = _mm256_unpacklo_epi32(v[0], v[1]);
  const __m256i a1 = _mm256_unpackhi_epi32(v[0], v[1]);
  const __m256i a2 = _mm256_unpacklo_epi32(v[2], v[3]);
  const __m256i a3 = _mm256_unpackhi_epi32(v[2], v[3]);
  out[0] = _mm256_unpacklo_epi64(a0, a2);
  out[1] = _mm256_unpackhi_epi64(a0, a2);
  out[2] = _mm256_unpacklo_epi64(a1, a3);
  out[3] = _mm256_unpackhi_epi64(a1, a3);
}

// Key mixing of one position in every lane, the state given as nibbles.
OXCFG_WBAES_AVX2 inline __m256i KeyMixSliced(const PreparedKey& k, int j, int p, __m256i hi,
                                             __m256i lo) {
  return _mm256_or_si256(Lookup16(Row(k.rows[j][0][RowSlot(p)]), hi),
                         Lookup16(Row(k.rows[j][1][RowSlot(p)]), lo));
}

// Up to kLanes blocks, block b in byte lane b of one vector per state
// position. Reads all of its input before writing any output. kSum: table
// IV summed through DerivedTables::thirdSum and fourthOut (the set has
// them) rather than step by step.
template <bool kDecipher, bool kSum>
OXCFG_WBAES_AVX2 void SlicedBatch(const WbAesDirTables& t, const PreparedKey& k,
                             const DerivedTables& d, const std::uint8_t* in, std::uint8_t* out,
                             std::size_t blocks) {
  // bytes[j][b]: byte j (column order) of block b.
  alignas(32) std::uint8_t bytes[16][kLanes] = {};
  for (std::size_t b = 0; b < blocks; ++b) {
    for (int j = 0; j < 16; ++j) bytes[j][b] = in[16 * b + j];
  }

  // The state as nibbles: hi[p], lo[p] for position p.
  __m256i hi[16];
  __m256i lo[16];
  for (int p = 0; p < 16; ++p) {
    const __m256i b = Load(bytes[(p >> 2) + 4 * (p & 3)]);
    const __m256i tab = Row(t.I + 16 * p);
    const __m256i th = Lookup16(tab, High(b));
    const __m256i tl = Lookup16(tab, Low(b));
    hi[p] = Low(_mm256_xor_si256(th, _mm256_srli_epi16(tl, 4)));
    lo[p] = Low(tl);
  }

  const int rounds = k.rounds;
  for (int j = 0; j + 1 < rounds; ++j) {
    // xs[p]: the key-mixed byte that position p reads after the row shift.
    alignas(32) std::uint8_t xs[16][kLanes];
    for (int p = 0; p < 16; ++p) {
      Store(xs[p], KeyMixSliced(k, j, Source(kDecipher, p), hi[Source(kDecipher, p)],
                                lo[Source(kDecipher, p)]));
    }
    if constexpr (kSum) {
      // Table III and the decodings of table IV through scalar loads, the
      // sums' encodings through shuffles.
#pragma GCC unroll 1
      for (int c = 0; c < 4; ++c) {
        alignas(32) std::uint8_t words[kLanes][4];
        ThirdSumWords(d, xs, c, words);
        __m256i y[4];  // y[i]: output (i, c)'s sum
        BytesOfWords(words, y);
        for (int i = 0; i < 4; ++i) {
          const int q = 4 * i + c;
          hi[q] = Lookup16(Row(d.fourthOut[q][0]), High(y[i]));
          lo[q] = Lookup16(Row(d.fourthOut[q][1]), Low(y[i]));
        }
      }
    } else {
      // Table III of column c + 1 is looked up (scalar loads) while column c
      // is combined (vector shuffles), so both kinds of units work at once.
      alignas(32) std::uint8_t words[2][4][kLanes][4];
      for (int r = 0; r < 4; ++r) ThirdWords(d.thirdWords[4 * r], xs[4 * r], words[0][r]);
#pragma GCC unroll 1
      for (int c = 0; c < 4; ++c) {
        __m256i y[4][4];  // y[r][i]: byte i of table III at position (r, c)
        for (int r = 0; r < 4; ++r) BytesOfWords(words[c & 1][r], y[r]);
        for (int i = 0; i < 4; ++i) {
          if (c < 3) {
            const int p = 4 * i + c + 1;
            ThirdWords(d.thirdWords[p], xs[p], words[(c + 1) & 1][i]);
          }
          const int q = 4 * i + c;
          __m256i ah = High(y[0][i]);
          __m256i al = Low(y[0][i]);
          for (int step = 0; step < 3; ++step) {
            const __m256i sel = y[step + 1][i];
            ah = CombineStep(d.slicedFourth[q][step][0], sel, ah);
            al = CombineStep(d.slicedFourth[q][step][1], _mm256_slli_epi16(sel, 4), al);
          }
          hi[q] = ah;
          lo[q] = al;
        }
      }
    }
  }

  __m256i x[16];
  for (int p = 0; p < 16; ++p) x[p] = KeyMixSliced(k, rounds - 1, p, hi[p], lo[p]);
  for (int p = 0; p < 16; ++p) {
    const __m256i v = LookupRows(d.slicedFifth[p], x[Source(kDecipher, p)]);
    Store(bytes[(p >> 2) + 4 * (p & 3)], KeyMixSliced(k, rounds, p, High(v), Low(v)));
  }
  for (std::size_t b = 0; b < blocks; ++b) {
    for (int j = 0; j < 16; ++j) out[16 * b + j] = bytes[j][b];
  }
}

template <bool kDecipher>
OXCFG_WBAES_AVX2 void Sliced(const WbAesDirTables& t, const PreparedKey& k,
                             const DerivedTables& d, const std::uint8_t* in, std::uint8_t* out,
                             std::size_t blocks) {
  (d.hasFourthSum ? SlicedBatch<kDecipher, true>
                  : SlicedBatch<kDecipher, false>)(t, k, d, in, out, blocks);
}

template <bool kDecipher>
OXCFG_WBAES_AVX2 void Run(const WbAesDirTables& t, const PreparedKey& k, const std::uint8_t* in,
                          std::uint8_t* out, std::size_t blocks) {
  SlicedBatches<kLanes, kSlicedThreshold, Sliced<kDecipher>>(t, k, in, out, blocks);
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
  RunDirection<Run<false>, Run<true>>(decipher, tables, key, in, out, blocks);
}

void EncipherChainAvx2(const WbAesDirTables& tables, const PreparedKey& key,
                       const std::uint8_t* iv, const std::uint8_t* in, std::uint8_t* out,
                       std::size_t blocks) {
  ChainBlocks<SingleBlock<false, true>>(tables, key, iv, in, out, blocks);
}

}  // namespace wbaes
}  // namespace OxConfigMgr

#endif  // OXCFG_WBAES_HAVE_AVX2
