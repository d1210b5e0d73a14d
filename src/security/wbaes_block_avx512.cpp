// AVX-512 block engine (x86-64 with AVX-512 F, BW, VL and VBMI, checked at
// run time). Same stages, same arithmetic and therefore the same results as
// the portable engine in wbaes_block.cpp; only the data layout differs:
//
//  - Runs of blocks (ECB, CBC deciphering) go through the block-sliced path:
//    up to 64 blocks at a time, one block per byte lane, one vector per
//    state position. Every lookup then uses one table for all lanes, and the
//    tables are small enough to be looked up inside registers: 16 entries
//    (vpshufb) for the key rows and table I, 128 entries (vpermi2b) for each
//    packed nibble table of IV and each half of tables III (de-interleaved by
//    output byte) and V.
//  - A single block (CBC enciphering is a chain) goes through tables III
//    and IV fused in advance: per position and round, two 64-byte loads
//    bring the table IV lines that the position's partials select, and the
//    three combining steps and the next key mixing compose as in-register
//    64-entry lookups (vpermb), four outputs per vector. The state travels
//    between rounds through a 16-byte stack buffer whose bytes address the
//    next loads.
//
// Both paths read the derived tables (DerivedTables) and the per-call key
// rows. Nothing branches on key or data.
#include "security/wbaes_block.h"

#ifdef OXCFG_WBAES_HAVE_AVX512

#include <cstdint>
#include <cstring>

// GCC 12 reports its own intrinsics' deliberately undefined start values as
// uninitialised when they are inlined into target-attribute functions.
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wuninitialized"
#if defined(__GNUC__) && !defined(__clang__)
#pragma GCC diagnostic ignored "-Wmaybe-uninitialized"
#endif
#include <immintrin.h>

#define OXCFG_WBAES_AVX512 __attribute__((target("avx512f,avx512bw,avx512vl,avx512vbmi")))

namespace OxConfigMgr {
namespace wbaes {
namespace {

// From this many blocks on, one sliced batch (its cost does not depend on
// how many of its 64 lanes are used) beats that many single blocks.
constexpr std::size_t kSlicedThreshold = 16;
constexpr std::size_t kLanes = 64;

struct alignas(64) Lanes32 {
  std::uint32_t v[16];
};
struct alignas(64) Lanes8 {
  std::uint8_t v[64];
};

// Four blocks in a vector (block-major) -> byte-major: byte 4j + t is byte j
// of block t. And its inverse.
constexpr Lanes8 ToByteMajor() {
  Lanes8 l{};
  for (int j = 0; j < 16; ++j) {
    for (int t = 0; t < 4; ++t) l.v[4 * j + t] = static_cast<std::uint8_t>(16 * t + j);
  }
  return l;
}
constexpr Lanes8 ToBlockMajor() {
  Lanes8 l{};
  for (int j = 0; j < 16; ++j) {
    for (int t = 0; t < 4; ++t) l.v[16 * t + j] = static_cast<std::uint8_t>(4 * j + t);
  }
  return l;
}

// 16 x 16 transposition of 32-bit elements in four stages; stage s swaps bit
// s of the row and column indices between vectors i and i + 2^s.
struct TransposeIndex {
  Lanes32 first[4];
  Lanes32 second[4];
};
constexpr TransposeIndex MakeTransposeIndex() {
  TransposeIndex t{};
  for (int s = 0; s < 4; ++s) {
    const std::uint32_t d = 1u << s;
    for (std::uint32_t j = 0; j < 16; ++j) {
      t.first[s].v[j] = (j & d) == 0 ? j : 16 + (j ^ d);
      t.second[s].v[j] = (j & d) == 0 ? (j | d) : 16 + j;
    }
  }
  return t;
}

constexpr Lanes8 kToByteMajor = ToByteMajor();
constexpr Lanes8 kToBlockMajor = ToBlockMajor();
constexpr TransposeIndex kTranspose16 = MakeTransposeIndex();

OXCFG_WBAES_AVX512 inline __m512i Load(const void* p) { return _mm512_load_si512(p); }
OXCFG_WBAES_AVX512 inline __m512i LoadU(const void* p) { return _mm512_loadu_si512(p); }
OXCFG_WBAES_AVX512 inline __m512i Set8(int v) { return _mm512_set1_epi8(static_cast<char>(v)); }

// ---- single block ---------------------------------------------------------------------

// vpermb: byte k of the result is table[idx[k] & 63].
OXCFG_WBAES_AVX512 inline __m512i Lookup64(__m512i idx, __m512i table) {
  return _mm512_permutexvar_epi8(idx, table);
}

OXCFG_WBAES_AVX512 inline __m512i Load32(const std::uint8_t* p) {
  std::uint32_t v;
  std::memcpy(&v, p, sizeof v);
  return _mm512_castsi128_si512(_mm_cvtsi32_si128(static_cast<int>(v)));
}

// Column c's four outputs of one inner round, key-mixed with the next round
// key's rows into mixed. Per nibble half, the three combining steps and the
// key mixing compose into one 16-entry function per output (key rows last;
// they yield the key-mixed byte's half in place). Composing as
// (K o L3) o (L2 o L1) keeps two lookups between the loads and the result;
// the start value is looked up last.
OXCFG_WBAES_AVX512 inline void ColumnVector(const ColumnLines& l,
                                            const std::uint8_t (&rows)[2][16][16], int c,
                                            std::uint8_t* mixed) {
  __m512i half[2];
#pragma GCC unroll 2
  for (int h = 0; h < 2; ++h) {
    const __m512i keyed = Lookup64(Load(l.step[2][h]), Load(rows[h][4 * c]));
    const __m512i first = Lookup64(Load(l.step[0][h]), Load(l.step[1][h]));
    half[h] = Lookup64(Load32(l.start + 4 * h), Lookup64(first, keyed));
  }
  const int v = _mm_cvtsi128_si32(
      _mm_or_si128(_mm512_castsi512_si128(half[0]), _mm512_castsi512_si128(half[1])));
  std::memcpy(mixed, &v, sizeof v);
}

// The portable engine's Block with vector columns.
template <bool kDecipher, bool kChained>
OXCFG_WBAES_AVX512 void SingleBlock(const WbAesDirTables& t, const PreparedKey& k,
                                    const std::uint8_t* in, const std::uint8_t* chain,
                                    std::uint8_t* out) {
  alignas(16) std::uint8_t state[2][16];
  EnterBlock<kChained>(t, k, in, chain, state[0]);
  int cur = 0;
  for (int j = 0; j + 1 < k.rounds; ++j, cur ^= 1) {
#pragma GCC unroll 4
    for (int c = 0; c < 4; ++c) {
      ColumnVector(SelectColumn<kDecipher>(*k.derived, state[cur], c), k.rows[j + 1], c,
                   state[cur ^ 1] + 4 * c);
    }
  }
  LeaveBlock<kDecipher>(t, k, state[cur], out);
}

// ---- block-sliced: one block per byte lane -----------------------------------------

// 16-entry table (low 4 bits of each lane) in every 128-bit lane.
OXCFG_WBAES_AVX512 inline __m512i Table16(const std::uint8_t* t) {
  return _mm512_broadcast_i32x4(_mm_loadu_si128(reinterpret_cast<const __m128i*>(t)));
}

// 256-entry byte table lookup in every byte lane.
OXCFG_WBAES_AVX512 inline __m512i Lookup256(const std::uint8_t* t, __m512i x) {
  const __m512i low = _mm512_permutex2var_epi8(LoadU(t), x, LoadU(t + 64));
  const __m512i high = _mm512_permutex2var_epi8(LoadU(t + 128), x, LoadU(t + 192));
  return _mm512_mask_blend_epi8(_mm512_movepi8_mask(x), low, high);
}

OXCFG_WBAES_AVX512 inline __m512i HighNibble(__m512i v) {
  return _mm512_and_si512(_mm512_srli_epi16(v, 4), Set8(0x0F));
}

// Key mixing of one position across all lanes through the key rows.
OXCFG_WBAES_AVX512 inline __m512i KeyMixSliced(const PreparedKey& k, int j, int p, __m512i s) {
  const __m512i hi = _mm512_shuffle_epi8(Table16(k.rows[j][0][RowSlot(p)]), HighNibble(s));
  const __m512i lo =
      _mm512_shuffle_epi8(Table16(k.rows[j][1][RowSlot(p)]), _mm512_and_si512(s, Set8(0x0F)));
  return _mm512_or_si512(hi, lo);
}

// One packed nibble table (128 bytes) of table IV, `yHigh` carrying do_xor's row
// argument (its nibble already in bits 4..7 of each byte) and `acc` the
// column argument (0..15).
OXCFG_WBAES_AVX512 inline __m512i XorNibble(const std::uint8_t* t, __m512i yHigh, __m512i acc) {
  // (yHigh & 0xF0) | acc; vpermi2b reads the low 7 bits, bit 7 picks the nibble.
  const __m512i idx = _mm512_ternarylogic_epi32(yHigh, Set8(0xF0), acc, 0xEA);
  const __m512i packed = _mm512_permutex2var_epi8(LoadU(t), idx, LoadU(t + 64));
  const __m512i v =
      _mm512_mask_blend_epi8(_mm512_movepi8_mask(idx), packed, _mm512_srli_epi16(packed, 4));
  return _mm512_and_si512(v, Set8(0x0F));
}

OXCFG_WBAES_AVX512 inline void Transpose16(__m512i* v) {
  for (int s = 0; s < 4; ++s) {
    const int d = 1 << s;
    const __m512i first = Load(kTranspose16.first[s].v);
    const __m512i second = Load(kTranspose16.second[s].v);
    for (int i = 0; i < 16; ++i) {
      if (i & d) continue;
      const __m512i a = v[i];
      const __m512i b = v[i | d];
      v[i] = _mm512_permutex2var_epi32(a, first, b);
      v[i | d] = _mm512_permutex2var_epi32(a, second, b);
    }
  }
}

template <bool kDecipher>
OXCFG_WBAES_AVX512 void Sliced(const WbAesDirTables& t, const PreparedKey& k,
                               const DerivedTables& d, const std::uint8_t* in, std::uint8_t* out,
                               std::size_t blocks) {
  const std::size_t bytes = 16 * blocks;
  auto laneMask = [bytes](int m) -> __mmask64 {
    const std::size_t from = 64 * static_cast<std::size_t>(m);
    if (bytes <= from) return 0;
    const std::size_t n = bytes - from;
    return n >= 64 ? ~0ull : (1ull << n) - 1;
  };

  // v[j]: byte j (column order) of every block, block b in byte lane b.
  __m512i v[16];
  const __m512i toByteMajor = Load(kToByteMajor.v);
  for (int m = 0; m < 16; ++m) {
    v[m] = _mm512_permutexvar_epi8(toByteMajor, _mm512_maskz_loadu_epi8(laneMask(m), in + 64 * m));
  }
  Transpose16(v);

  // s[p]: state position p = 4r + c (input byte r + 4c).
  __m512i s[16];
  for (int p = 0; p < 16; ++p) {
    const __m512i b = v[(p >> 2) + 4 * (p & 3)];
    const __m512i tab = Table16(t.I + 16 * p);
    const __m512i hi = _mm512_shuffle_epi8(tab, HighNibble(b));
    const __m512i lo = _mm512_shuffle_epi8(tab, _mm512_and_si512(b, Set8(0x0F)));
    s[p] = _mm512_xor_si512(_mm512_and_si512(_mm512_slli_epi16(hi, 4), Set8(0xF0)), lo);
  }

  const int rounds = k.rounds;
  for (int j = 0; j + 1 < rounds; ++j) {
    __m512i x[16];
    for (int p = 0; p < 16; ++p) x[p] = KeyMixSliced(k, j, p, s[p]);
    // After the row shift position p holds x[Source(p)].
    for (int c = 0; c < 4; ++c) {
      for (int i = 0; i < 4; ++i) {
        const int q = 4 * i + c;
        __m512i y[4];
        for (int r = 0; r < 4; ++r) {
          const int p = 4 * r + c;
          y[r] = Lookup256(d.third[p][i], x[Source(kDecipher, p)]);
        }
        const std::uint8_t* iv = t.IV + 256 * 3 * q;
        __m512i ah = HighNibble(y[0]);
        __m512i al = _mm512_and_si512(y[0], Set8(0x0F));
        for (int step = 0; step < 3; ++step) {
          const __m512i yk = y[step + 1];
          ah = XorNibble(iv + 256 * step, yk, ah);
          al = XorNibble(iv + 256 * step + 128, _mm512_slli_epi16(yk, 4), al);
        }
        s[q] = _mm512_or_si512(_mm512_slli_epi16(ah, 4), al);
      }
    }
  }

  __m512i x[16];
  for (int p = 0; p < 16; ++p) x[p] = KeyMixSliced(k, rounds - 1, p, s[p]);
  for (int p = 0; p < 16; ++p) {
    const __m512i sub = Lookup256(t.V + 256 * p, x[Source(kDecipher, p)]);
    v[(p >> 2) + 4 * (p & 3)] = KeyMixSliced(k, rounds, p, sub);
  }

  Transpose16(v);
  const __m512i toBlockMajor = Load(kToBlockMajor.v);
  for (int m = 0; m < 16; ++m) {
    _mm512_mask_storeu_epi8(out + 64 * m, laneMask(m), _mm512_permutexvar_epi8(toBlockMajor, v[m]));
  }
}

template <bool kDecipher>
OXCFG_WBAES_AVX512 void Run(const WbAesDirTables& t, const PreparedKey& k, const std::uint8_t* in,
                            std::uint8_t* out, std::size_t blocks) {
  SlicedBatches<kLanes, kSlicedThreshold, Sliced<kDecipher>>(t, k, in, out, blocks);
  for (; blocks > 0; --blocks, in += 16, out += 16) {
    SingleBlock<kDecipher, false>(t, k, in, nullptr, out);
  }
}

}  // namespace

bool CpuHasAvx512Engine() {
  __builtin_cpu_init();
  return __builtin_cpu_supports("avx512f") && __builtin_cpu_supports("avx512bw") &&
         __builtin_cpu_supports("avx512vl") && __builtin_cpu_supports("avx512vbmi");
}

void ProcessBlocksAvx512(const WbAesDirTables& tables, bool decipher, const PreparedKey& key,
                         const std::uint8_t* in, std::uint8_t* out, std::size_t blocks) {
  RunDirection<Run<false>, Run<true>>(decipher, tables, key, in, out, blocks);
}

void EncipherChainAvx512(const WbAesDirTables& tables, const PreparedKey& key,
                         const std::uint8_t* iv, const std::uint8_t* in, std::uint8_t* out,
                         std::size_t blocks) {
  ChainBlocks<SingleBlock<false, true>>(tables, key, iv, in, out, blocks);
}

}  // namespace wbaes
}  // namespace OxConfigMgr

#pragma GCC diagnostic pop

#endif  // OXCFG_WBAES_HAVE_AVX512
