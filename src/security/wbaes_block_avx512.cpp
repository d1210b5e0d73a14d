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
// The layouts both paths need beyond the tables themselves (DerivedTables,
// about 420 KiB per direction) depend on the tables only, never on the key.
// Nothing branches on key or data.
#include "security/wbaes_block.h"

#ifdef OXCFG_WBAES_HAVE_AVX512

#include <atomic>
#include <cstdint>
#include <cstring>
#include <memory>
#include <mutex>
#include <new>

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

constexpr int Source(bool decipher, int p) {
  const int r = p >> 2;
  const int c = p & 3;
  return 4 * r + ((decipher ? c - r : c + r) & 3);
}

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

}  // namespace

// ---- derived tables -------------------------------------------------------------------

// Single blocks: tables III and IV fused. Output q = 4i + c of table IV
// starts from partial 0 and is combined with partials 1..3, each a byte of
// table III's entry at position (r, c) for the byte x that position looks
// up. A partial fixes, as do_xor's row argument, one 16-entry line of the
// step's packed nibble table for the high nibbles and one for the low
// nibbles, so each step is a 16-entry lookup by the accumulator nibble.
// Lines are stored biased: entry b of output row i holds 16i + result,
// which is directly the index of the same output's line in the next 64-byte
// table (vpermb), so steps compose without arithmetic.
//  lines[p - 4][x][half]: for position p = 4r + c, r >= 1: bytes 16i..16i+15
//      = the biased line of step r - 1 of output (i, c), half 0 for the high
//      nibbles, 1 for the low ones.
//  start[c][x]: byte i = 16i + high nibble, byte 4 + i = 16i + low nibble of
//      partial 0 of output (i, c) (table III at position (0, c)).
// Runs of blocks: third[p][i][x] = III[p][x][i], each (position, output
// byte) a contiguous 256-byte table.
// Key rows: keyLines[0 for II, 1 for VI][p][k][a] = entry a * 16 + k of
// position p's table, so that the row a key nibble selects is 16 contiguous
// bytes.
struct DerivedTables {
  alignas(64) std::uint8_t lines[12][256][2][64];
  alignas(64) std::uint8_t start[4][256][8];
  alignas(64) std::uint8_t third[16][4][256];
  alignas(64) std::uint8_t keyLines[2][16][16][16];
};

void DerivedTablesDeleter::operator()(DerivedTables* d) const { delete d; }

namespace {

// Returns nullptr when memory is short; callers then use the portable engine.
DerivedTables* NewDerived(const WbAesDirTables& t) {
  DerivedTables* d = new (std::nothrow) DerivedTables;
  // results[q][step][half][a][b] = do_xor(a, b) on the packed table of
  // output q, step `step`, nibble half `half`.
  struct Results {
    std::uint8_t v[16][3][2][16][16];
  };
  const std::unique_ptr<Results> res(new (std::nothrow) Results);
  if (d == nullptr || res == nullptr) {
    delete d;
    return nullptr;
  }
  for (int q = 0; q < 16; ++q) {
    for (int st = 0; st < 3; ++st) {
      for (int half = 0; half < 2; ++half) {
        const std::uint8_t* packed = t.IV + 256 * (3 * q + st) + 128 * half;
        for (int a = 0; a < 16; ++a) {
          for (int b = 0; b < 16; ++b) {
            res->v[q][st][half][a][b] =
                do_xor(static_cast<std::uint8_t>(a), static_cast<std::uint8_t>(b), packed);
          }
        }
      }
    }
  }
  for (int x = 0; x < 256; ++x) {
    for (int p = 0; p < 16; ++p) {
      const int r = p >> 2;
      const int c = p & 3;
      for (int i = 0; i < 4; ++i) {
        const std::uint8_t partial = t.III[1024 * p + 4 * x + i];
        const std::uint8_t bias = static_cast<std::uint8_t>(16 * i);
        if (r == 0) {
          d->start[c][x][i] = static_cast<std::uint8_t>(bias + (partial >> 4));
          d->start[c][x][4 + i] = static_cast<std::uint8_t>(bias + (partial & 15));
          continue;
        }
        const int q = 4 * i + c;
        const int nibble[2] = {partial >> 4, partial & 15};
        for (int half = 0; half < 2; ++half) {
          const std::uint8_t* line = res->v[q][r - 1][half][nibble[half]];
          std::uint8_t* dst = &d->lines[p - 4][x][half][16 * i];
          for (int b = 0; b < 16; ++b) dst[b] = static_cast<std::uint8_t>(bias + line[b]);
        }
      }
    }
  }
  for (int p = 0; p < 16; ++p) {
    for (int x = 0; x < 256; ++x) {
      for (int i = 0; i < 4; ++i) d->third[p][i][x] = t.III[1024 * p + 4 * x + i];
    }
    for (int k = 0; k < 16; ++k) {
      for (int a = 0; a < 16; ++a) {
        d->keyLines[0][p][k][a] = t.II[256 * p + 16 * a + k];
        d->keyLines[1][p][k][a] = t.VI[256 * p + 16 * a + k];
      }
    }
  }
  return d;
}

// The linked-in set's derived tables, built once per process and direction
// on first use (a failed allocation is retried by the next call) and never
// freed; the table pointers identify the set because its tables are
// immutable static data.
struct LinkedCache {
  std::mutex mutex;
  std::atomic<const DerivedTables*> tables{nullptr};
};
LinkedCache gLinkedEnc;
LinkedCache gLinkedDec;

const DerivedTables* LinkedDerived(const WbAesDirTables& t) {
  auto same = [&t](const WbAesDirTables& o) {
    return t.I == o.I && t.II == o.II && t.III == o.III && t.IV == o.IV && t.V == o.V &&
           t.VI == o.VI;
  };
  LinkedCache* cache = same(kProductionTables.enc)   ? &gLinkedEnc
                       : same(kProductionTables.dec) ? &gLinkedDec
                                                     : nullptr;
  if (cache == nullptr) return nullptr;
  const DerivedTables* d = cache->tables.load(std::memory_order_acquire);
  if (d != nullptr) return d;
  std::lock_guard<std::mutex> lock(cache->mutex);
  d = cache->tables.load(std::memory_order_relaxed);
  if (d == nullptr) {
    d = NewDerived(t);
    cache->tables.store(d, std::memory_order_release);
  }
  return d;
}

// ---- per-call key rows --------------------------------------------------------------

OXCFG_WBAES_AVX512 void BuildRows(const DerivedTables& d, PreparedKey* key) {
  const __m128i high = _mm_set1_epi8(static_cast<char>(0xF0));
  const __m128i low = _mm_set1_epi8(0x0F);
  for (int j = 0; j <= key->rounds; ++j) {
    const int table = j < key->rounds ? 0 : 1;
    for (int p = 0; p < 16; ++p) {
      const __m128i hi = _mm_loadu_si128(
          reinterpret_cast<const __m128i*>(d.keyLines[table][p][key->hiOffset[j][p] & 15]));
      const __m128i lo = _mm_loadu_si128(
          reinterpret_cast<const __m128i*>(d.keyLines[table][p][key->loOffset[j][p] & 15]));
      _mm_store_si128(reinterpret_cast<__m128i*>(key->rows[j][0][RowSlot(p)]),
                      _mm_and_si128(hi, high));
      _mm_store_si128(reinterpret_cast<__m128i*>(key->rows[j][1][RowSlot(p)]),
                      _mm_and_si128(_mm_srli_epi16(lo, 4), low));
    }
  }
}

// ---- single block ---------------------------------------------------------------------

// Where SingleBlock keeps position p's key-mixed byte: column by column, as
// each column's four outputs come out of one vector.
constexpr int StateAt(int p) { return 4 * (p & 3) + (p >> 2); }

template <bool kDecipher>
constexpr int SourceAt(int p) {
  return StateAt(Source(kDecipher, p));
}

inline std::uint8_t KeyMixByte(const PreparedKey& k, int j, int p, std::uint32_t s) {
  const int slot = RowSlot(p);
  return static_cast<std::uint8_t>(k.rows[j][0][slot][s >> 4] | k.rows[j][1][slot][s & 15]);
}

// vpermb: byte k of the result is table[idx[k] & 63].
OXCFG_WBAES_AVX512 inline __m512i Lookup64(__m512i idx, __m512i table) {
  return _mm512_permutexvar_epi8(idx, table);
}

OXCFG_WBAES_AVX512 inline __m512i Load32(const std::uint8_t* p) {
  std::uint32_t v;
  std::memcpy(&v, p, sizeof v);
  return _mm512_castsi128_si512(_mm_cvtsi32_si128(static_cast<int>(v)));
}

// One block; with kChained, the block enciphered is in XOR chain.
template <bool kDecipher, bool kChained>
OXCFG_WBAES_AVX512 void SingleBlock(const WbAesDirTables& t, const PreparedKey& k,
                                    const std::uint8_t* in, const std::uint8_t* chain,
                                    std::uint8_t* out) {
  const DerivedTables& f = *k.derived;
  // Key-mixed state of the round being computed and of the next one.
  alignas(16) std::uint8_t state[2][16];
#pragma GCC unroll 16
  for (int p = 0; p < 16; ++p) {
    const int at = (p >> 2) + 4 * (p & 3);
    const std::uint32_t b = kChained ? in[at] ^ chain[at] : in[at];
    const std::uint8_t* T = t.I + 16 * p;
    const std::uint32_t s = ((static_cast<std::uint32_t>(T[b >> 4]) << 4) ^ T[b & 15]) & 0xFF;
    state[0][StateAt(p)] = KeyMixByte(k, 0, p, s);
  }

  const int rounds = k.rounds;
  int cur = 0;
  for (int j = 0; j + 1 < rounds; ++j) {
    const std::uint8_t* x = state[cur];
    std::uint8_t* next = state[cur ^ 1];
#pragma GCC unroll 4
    for (int c = 0; c < 4; ++c) {
      // Per nibble half, the three combining steps of column c's outputs
      // and the next round's key mixing compose into one 16-entry function
      // per output (key rows last; they yield the key-mixed byte's half in
      // place). Composing as (K o L3) o (L2 o L1) keeps two lookups between
      // the loads and the result; the start value is looked up last.
      const std::uint8_t(&l1)[2][64] = f.lines[4 + c - 4][x[SourceAt<kDecipher>(4 + c)]];
      const std::uint8_t(&l2)[2][64] = f.lines[8 + c - 4][x[SourceAt<kDecipher>(8 + c)]];
      const std::uint8_t(&l3)[2][64] = f.lines[12 + c - 4][x[SourceAt<kDecipher>(12 + c)]];
      const std::uint8_t* st = f.start[c][x[SourceAt<kDecipher>(c)]];
      __m512i half[2];
#pragma GCC unroll 2
      for (int h = 0; h < 2; ++h) {
        const __m512i keyed = Lookup64(Load(l3[h]), Load(k.rows[j + 1][h][4 * c]));
        const __m512i first = Lookup64(Load(l1[h]), Load(l2[h]));
        half[h] = Lookup64(Load32(st + 4 * h), Lookup64(first, keyed));
      }
      const int mixed =
          _mm_cvtsi128_si32(_mm_or_si128(_mm512_castsi512_si128(half[0]), _mm512_castsi512_si128(half[1])));
      std::memcpy(next + 4 * c, &mixed, sizeof mixed);
    }
    cur ^= 1;
  }

  const std::uint8_t* x = state[cur];
#pragma GCC unroll 16
  for (int p = 0; p < 16; ++p) {
    const std::uint32_t v = t.V[256 * p + x[SourceAt<kDecipher>(p)]];
    out[(p >> 2) + 4 * (p & 3)] = KeyMixByte(k, rounds, p, v);
  }
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
  // Each batch reads all of its input before writing any output, so
  // in-place processing is safe.
  while (blocks >= kSlicedThreshold) {
    const std::size_t n = blocks < kLanes ? blocks : kLanes;
    Sliced<kDecipher>(t, k, *k.derived, in, out, n);
    in += 16 * n;
    out += 16 * n;
    blocks -= n;
  }
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

void PrepareAvx512(const WbAesDirTables& tables, PreparedKey* key) {
  key->derived = LinkedDerived(tables);
  if (key->derived == nullptr) {
    key->ownDerived.reset(NewDerived(tables));
    key->derived = key->ownDerived.get();
  }
  if (key->derived != nullptr) BuildRows(*key->derived, key);
}

void ProcessBlocksAvx512(const WbAesDirTables& tables, bool decipher, const PreparedKey& key,
                         const std::uint8_t* in, std::uint8_t* out, std::size_t blocks) {
  if (decipher) {
    Run<true>(tables, key, in, out, blocks);
  } else {
    Run<false>(tables, key, in, out, blocks);
  }
}

void EncipherChainAvx512(const WbAesDirTables& tables, const PreparedKey& key,
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

#pragma GCC diagnostic pop

#endif  // OXCFG_WBAES_HAVE_AVX512
