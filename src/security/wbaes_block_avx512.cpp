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
//    output byte, once per call) and V.
//  - A lone block (CBC enciphering is a chain) keeps the 16 positions in the
//    lanes of one vector; its lookups are gathers, one lane per position,
//    except key mixing, which reads the per-call key rows in registers.
//
// Table reads by gather use aligned 32-bit words, so no read reaches past a
// table's end; the wanted byte is shifted down within its word. Nothing
// branches on data.
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

// From this many blocks on, one sliced batch (cost independent of how many
// of its 64 lanes are used, about that of four single blocks here) beats
// that many single-block runs.
constexpr std::size_t kSlicedThreshold = 5;
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

constexpr Lanes32 PositionTimes(std::uint32_t scale) {
  Lanes32 l{};
  for (int p = 0; p < 16; ++p) l.v[p] = scale * static_cast<std::uint32_t>(p);
  return l;
}

// 32-bit word offset in table IV of the combining tables of step s for
// output q = Source(L) in lane L (shifted lane order, see LaneOrder).
constexpr Lanes32 StepBase(bool decipher, int s) {
  Lanes32 l{};
  for (int lane = 0; lane < 16; ++lane) {
    l.v[lane] = 64u * static_cast<std::uint32_t>(3 * Source(decipher, lane) + s);
  }
  return l;
}

// Position p takes the lane of Source(p) (the row shift).
constexpr Lanes32 RowShift(bool decipher) {
  Lanes32 l{};
  for (int p = 0; p < 16; ++p) l.v[p] = static_cast<std::uint32_t>(Source(decipher, p));
  return l;
}

// Column order <-> row order of a 16-byte block (a 4 x 4 transposition, its
// own inverse), in every 16-byte lane.
constexpr Lanes8 Transpose4x4() {
  Lanes8 l{};
  for (int i = 0; i < 64; ++i) l.v[i] = static_cast<std::uint8_t>(4 * (i & 3) + ((i >> 2) & 3));
  return l;
}

// Table III gives, in lane p = 4r + c, the four partials of position (r, c)
// (byte i for output row i). Partial k of output q = 4i + c is therefore
// byte i of lane 4k + c; for outputs in shifted lane order (see LaneOrder),
// lane L fetches lane PartialLane(k, L) and shifts it right by
// PartialShift(L) bits.
constexpr Lanes32 PartialLane(bool decipher, int k) {
  Lanes32 l{};
  for (int lane = 0; lane < 16; ++lane) {
    l.v[lane] = static_cast<std::uint32_t>(4 * k + (Source(decipher, lane) & 3));
  }
  return l;
}
constexpr Lanes32 PartialShift(bool decipher) {
  Lanes32 l{};
  for (int lane = 0; lane < 16; ++lane) {
    l.v[lane] = static_cast<std::uint32_t>(8 * (Source(decipher, lane) >> 2));
  }
  return l;
}

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

// Row-building indices: lanes 0..15 select entry a * 16 + high nibble, lanes
// 16..31 entry a * 16 + low nibble (a = lane & 15), before the key is added.
constexpr Lanes8 RowIndexBase() {
  Lanes8 l{};
  for (int i = 0; i < 32; ++i) l.v[i] = static_cast<std::uint8_t>(16 * (i & 15));
  return l;
}

constexpr Lanes32 kPos16 = PositionTimes(16);
constexpr Lanes32 kPos256 = PositionTimes(256);
constexpr Lanes32 kStep4Enc[3] = {StepBase(false, 0), StepBase(false, 1), StepBase(false, 2)};
constexpr Lanes32 kStep4Dec[3] = {StepBase(true, 0), StepBase(true, 1), StepBase(true, 2)};
constexpr Lanes32 kShiftEnc32 = RowShift(false);
constexpr Lanes32 kShiftDec32 = RowShift(true);
constexpr Lanes8 kTranspose4x4 = Transpose4x4();
constexpr Lanes32 kPartialLaneEnc[4] = {PartialLane(false, 0), PartialLane(false, 1),
                                        PartialLane(false, 2), PartialLane(false, 3)};
constexpr Lanes32 kPartialLaneDec[4] = {PartialLane(true, 0), PartialLane(true, 1),
                                        PartialLane(true, 2), PartialLane(true, 3)};
constexpr Lanes32 kPartialShiftEnc = PartialShift(false);
constexpr Lanes32 kPartialShiftDec = PartialShift(true);
constexpr Lanes8 kToByteMajor = ToByteMajor();
constexpr Lanes8 kToBlockMajor = ToBlockMajor();
constexpr TransposeIndex kTranspose16 = MakeTransposeIndex();
constexpr Lanes8 kRowIndexBase = RowIndexBase();

OXCFG_WBAES_AVX512 inline __m512i Load(const void* p) { return _mm512_load_si512(p); }
OXCFG_WBAES_AVX512 inline __m512i LoadU(const void* p) { return _mm512_loadu_si512(p); }
OXCFG_WBAES_AVX512 inline __m512i Set32(int v) { return _mm512_set1_epi32(v); }
OXCFG_WBAES_AVX512 inline __m512i Set8(int v) { return _mm512_set1_epi8(static_cast<char>(v)); }
OXCFG_WBAES_AVX512 inline __m128i Load128(const void* p) {
  return _mm_load_si128(static_cast<const __m128i*>(p));
}

// ---- per-call key rows ---------------------------------------------------------

OXCFG_WBAES_AVX512 void BuildRows(const WbAesDirTables& t, PreparedKey* key) {
  const __m512i base = Load(kRowIndexBase.v);
  for (int j = 0; j <= key->rounds; ++j) {
    const std::uint8_t* table = j < key->rounds ? t.II : t.VI;
    for (int p = 0; p < 16; ++p) {
      const std::uint8_t* row = table + 256 * p;
      // Lanes 0..15: + high key nibble, lanes 16..31: + low key nibble.
      const __m512i nibbles =
          _mm512_mask_blend_epi8(0xFFFF0000ull, Set8(static_cast<int>(key->hiOffset[j][p] & 15)),
                                 Set8(static_cast<int>(key->loOffset[j][p] & 15)));
      const __m512i idx = _mm512_add_epi8(base, nibbles);
      const __m512i low = _mm512_permutex2var_epi8(LoadU(row), idx, LoadU(row + 64));
      const __m512i high = _mm512_permutex2var_epi8(LoadU(row + 128), idx, LoadU(row + 192));
      // Entries a * 16 + k with a >= 8 lie in the upper 128 bytes.
      const __m512i v = _mm512_mask_blend_epi8(0xFF00FF00ull, low, high);
      const __m512i hiPart = _mm512_and_si512(v, Set8(0xF0));
      const __m512i loPart = _mm512_and_si512(_mm512_srli_epi16(v, 4), Set8(0x0F));
      const __m512i rows = _mm512_mask_blend_epi8(0xFFFF0000ull, hiPart, loPart);
      _mm_store_si128(reinterpret_cast<__m128i*>(key->rows[j][0][p]), _mm512_castsi512_si128(rows));
      _mm_store_si128(reinterpret_cast<__m128i*>(key->rows[j][1][p]),
                      _mm512_extracti32x4_epi32(rows, 1));
    }
  }
  key->hasRows = true;
}

// ---- single block: positions in lanes, gathers ------------------------------------

// Byte `idx` of `base` in each 32-bit lane, in bits 0..7 (bits above are
// garbage from the neighbouring bytes of the same word), shifted right by
// `extra` more bits.
OXCFG_WBAES_AVX512 inline __m512i GatherByte(const std::uint8_t* base, __m512i idx, __m512i extra) {
  const __m512i word = _mm512_i32gather_epi32(_mm512_srli_epi32(idx, 2), base, 4);
  const __m512i shift =
      _mm512_add_epi32(_mm512_slli_epi32(_mm512_and_si512(idx, Set32(3)), 3), extra);
  return _mm512_srlv_epi32(word, shift);
}

OXCFG_WBAES_AVX512 inline __m512i GatherByte(const std::uint8_t* base, __m512i idx) {
  const __m512i word = _mm512_i32gather_epi32(_mm512_srli_epi32(idx, 2), base, 4);
  return _mm512_srlv_epi32(word, _mm512_slli_epi32(_mm512_and_si512(idx, Set32(3)), 3));
}

// Lane orders of the single-block path. "Natural": lane p holds position p.
// "Shifted": lane L holds position Source(L), that is, the byte that the row
// shift moves to position L. Table IV's outputs are computed in shifted
// order, so the state leaves key mixing already row-shifted and no
// permutation stands on the chain between rounds.
struct LaneOrder {
  __m512i pos16;    // 16 * position: the key rows' line of each lane
  __mmask64 upper;  // byte 0 of the lanes whose position is 8..15
  bool shifted;
};

// Key mixing of the 16 positions, each lane holding the state byte's high
// nibble (ah) and low nibble (al) in its low 4 bits (bits above ignored).
// Returns the mixed byte in bits 0..7 of each lane, OR-ed with `orWith`
// (whose low 8 bits must be zero). With key rows: the rows of round key j
// are two 256-byte tables indexed by 16 * position + nibble, looked up in
// registers (byte 0 of each 32-bit lane carries the index; the other bytes
// are zeroed). Without: gathers from table II/VI itself.
OXCFG_WBAES_AVX512 inline __m512i KeyMix(const std::uint8_t* table, const PreparedKey& k, int j,
                                         const LaneOrder& order, const __m512i& shiftRows,
                                         __m512i ah, __m512i al, __m512i orWith) {
  if (k.hasRows) {
    // pos16 | (nibble & 15)
    const __m512i idxHi = _mm512_ternarylogic_epi32(order.pos16, ah, Set32(15), 0xF8);
    const __m512i idxLo = _mm512_ternarylogic_epi32(order.pos16, al, Set32(15), 0xF8);
    const std::uint8_t* hiRows = &k.rows[j][0][0][0];
    const std::uint8_t* loRows = &k.rows[j][1][0][0];
    constexpr __mmask64 kByte0 = 0x1111111111111111ull;
    // Lanes whose position is 8..15 index the upper 128 bytes.
    const __m512i hi = _mm512_mask_blend_epi8(
        order.upper, _mm512_maskz_permutex2var_epi8(kByte0, Load(hiRows), idxHi, Load(hiRows + 64)),
        _mm512_maskz_permutex2var_epi8(kByte0, Load(hiRows + 128), idxHi, Load(hiRows + 192)));
    const __m512i lo = _mm512_mask_blend_epi8(
        order.upper, _mm512_maskz_permutex2var_epi8(kByte0, Load(loRows), idxLo, Load(loRows + 64)),
        _mm512_maskz_permutex2var_epi8(kByte0, Load(loRows + 128), idxLo, Load(loRows + 192)));
    return _mm512_ternarylogic_epi32(hi, lo, orWith, 0xFE);  // hi | lo | orWith
  }
  __m512i hiOff = Load(k.hiOffset[j]);
  __m512i loOff = Load(k.loOffset[j]);
  if (order.shifted) {
    hiOff = _mm512_permutexvar_epi32(shiftRows, hiOff);
    loOff = _mm512_permutexvar_epi32(shiftRows, loOff);
  }
  const __m512i hiIdx =
      _mm512_add_epi32(hiOff, _mm512_slli_epi32(_mm512_and_si512(ah, Set32(15)), 4));
  const __m512i loIdx =
      _mm512_add_epi32(loOff, _mm512_slli_epi32(_mm512_and_si512(al, Set32(15)), 4));
  const __m512i hi = _mm512_and_si512(GatherByte(table, hiIdx), Set32(0xF0));
  const __m512i lo = _mm512_and_si512(GatherByte(table, loIdx, Set32(4)), Set32(0x0F));
  return _mm512_ternarylogic_epi32(hi, lo, orWith, 0xFE);
}

// One combining step of table IV for all 16 outputs. `acc` holds the column
// argument in its low 4 bits (bits above are ignored); `line` is the 32-bit
// word index of the packed table line the row nibble selects (a multiple of
// 4, so the accumulator's word offset can be OR-ed in), `sel` 4 when the row
// nibble is 8 or more (the result is then the high nibble of the packed
// byte). Returns the new accumulator in bits 0..3, garbage above, so that
// only three operations stand between one gather and the next.
OXCFG_WBAES_AVX512 inline __m512i XorStep(const std::uint8_t* table, __m512i line, __m512i sel,
                                          __m512i acc) {
  // line | ((acc >> 2) & 3)
  const __m512i word = _mm512_ternarylogic_epi32(line, _mm512_srli_epi32(acc, 2), Set32(3), 0xF8);
  const __m512i shift =
      _mm512_add_epi32(_mm512_slli_epi32(_mm512_and_si512(acc, Set32(3)), 3), sel);
  return _mm512_srlv_epi32(_mm512_i32gather_epi32(word, table, 4), shift);
}

OXCFG_WBAES_AVX512 inline __m512i Partial(__m512i w, const Lanes32& lane, __m512i shift) {
  return _mm512_srlv_epi32(_mm512_permutexvar_epi32(Load(lane.v), w), shift);
}

template <bool kDecipher>
OXCFG_WBAES_AVX512 void SingleBlock(const WbAesDirTables& t, const PreparedKey& k,
                                    const std::uint8_t* in, std::uint8_t* out) {
  const __m128i transpose = Load128(kTranspose4x4.v);
  const __m512i shiftRows = Load(kDecipher ? kShiftDec32.v : kShiftEnc32.v);
  const __m512i pos16 = Load(kPos16.v);
  const __m512i pos16Shifted = _mm512_permutexvar_epi32(shiftRows, pos16);
  const LaneOrder natural = {pos16, _mm512_movepi8_mask(pos16), false};
  const LaneOrder shifted = {pos16Shifted, _mm512_movepi8_mask(pos16Shifted), true};
  const __m512i pos256 = Load(kPos256.v);
  const Lanes32* partialLane = kDecipher ? kPartialLaneDec : kPartialLaneEnc;
  const __m512i partialShift = Load(kDecipher ? kPartialShiftDec.v : kPartialShiftEnc.v);
  const Lanes32* steps = kDecipher ? kStep4Dec : kStep4Enc;
  const __m512i nib = Set32(15);

  __m512i ah, al;
  {
    const __m512i b = _mm512_cvtepu8_epi32(
        _mm_shuffle_epi8(_mm_loadu_si128(reinterpret_cast<const __m128i*>(in)), transpose));
    const __m512i hi = GatherByte(t.I, _mm512_add_epi32(natural.pos16, _mm512_srli_epi32(b, 4)));
    const __m512i lo = GatherByte(t.I, _mm512_add_epi32(natural.pos16, _mm512_and_si512(b, nib)));
    const __m512i s =
        _mm512_permutexvar_epi32(shiftRows, _mm512_xor_si512(_mm512_slli_epi32(hi, 4), lo));
    ah = _mm512_srli_epi32(s, 4);
    al = s;
  }

  const int rounds = k.rounds;
  for (int j = 0; j + 1 < rounds; ++j) {
    // Lane L: table III entry of position L after the row shift.
    const __m512i w =
        _mm512_i32gather_epi32(KeyMix(t.II, k, j, shifted, shiftRows, ah, al, pos256), t.III, 4);
    // Partial k of each output in bits 0..7 of its lane, garbage above
    // (every use below masks the bits it needs).
    const __m512i y0 = Partial(w, partialLane[0], partialShift);
    const __m512i y[3] = {Partial(w, partialLane[1], partialShift),
                          Partial(w, partialLane[2], partialShift),
                          Partial(w, partialLane[3], partialShift)};
    ah = _mm512_srli_epi32(y0, 4);
    al = y0;
    for (int st = 0; st < 3; ++st) {
      // Partial st + 1 is do_xor's row argument: bits 4..6 of its nibble
      // pick the table line, bit 7 the half of the packed byte.
      const __m512i yk = y[st];
      // Step base / 4 plus ((row nibble & 7) * 16) / 4.
      const __m512i base = Load(steps[st].v);
      const __m512i hiLine =
          _mm512_add_epi32(base, _mm512_and_si512(_mm512_srli_epi32(yk, 2), Set32(0x1C)));
      const __m512i loLine =
          _mm512_add_epi32(_mm512_add_epi32(base, Set32(32)),
                           _mm512_and_si512(_mm512_slli_epi32(yk, 2), Set32(0x1C)));
      const __m512i hiSel = _mm512_and_si512(_mm512_srli_epi32(yk, 5), Set32(4));
      const __m512i loSel = _mm512_and_si512(_mm512_srli_epi32(yk, 1), Set32(4));
      ah = XorStep(t.IV, hiLine, hiSel, ah);
      al = XorStep(t.IV, loLine, loSel, al);
    }
  }

  const __m512i x = KeyMix(t.II, k, rounds - 1, shifted, shiftRows, ah, al, pos256);
  const __m512i v = GatherByte(t.V, x);  // position L after the row shift
  const __m512i o = KeyMix(t.VI, k, rounds, natural, shiftRows, _mm512_srli_epi32(v, 4), v,
                           _mm512_setzero_si512());
  _mm_storeu_si128(reinterpret_cast<__m128i*>(out),
                   _mm_shuffle_epi8(_mm512_cvtepi32_epi8(o), transpose));
}

// ---- block-sliced: one block per byte lane -----------------------------------------

// Table III split by output byte: third[p][i][x] = III[p][x][i], so that each
// (position, output byte) is a contiguous 256-byte table.
struct SlicedTables {
  alignas(64) std::uint8_t third[16][4][256];
};

OXCFG_WBAES_AVX512 void SplitTableIII(const std::uint8_t* III, SlicedTables* st) {
  // For 32 consecutive entries (128 bytes), byte i of entry e sits at 4e + i.
  alignas(64) std::uint8_t pick[4][64];
  for (int i = 0; i < 4; ++i) {
    for (int e = 0; e < 64; ++e) pick[i][e] = static_cast<std::uint8_t>(4 * (e & 31) + i);
  }
  for (int p = 0; p < 16; ++p) {
    const std::uint8_t* src = III + 1024 * p;
    for (int i = 0; i < 4; ++i) {
      const __m512i idx = Load(pick[i]);
      for (int o = 0; o < 4; ++o) {
        const std::uint8_t* chunk = src + 256 * o;  // entries 64o .. 64o + 63
        const __m512i a = _mm512_permutex2var_epi8(LoadU(chunk), idx, LoadU(chunk + 64));
        const __m512i b = _mm512_permutex2var_epi8(LoadU(chunk + 128), idx, LoadU(chunk + 192));
        _mm512_store_si512(&st->third[p][i][64 * o],
                           _mm512_mask_blend_epi8(0xFFFFFFFF00000000ull, a, b));
      }
    }
  }
}

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
  const __m512i hi = _mm512_shuffle_epi8(Table16(k.rows[j][0][p]), HighNibble(s));
  const __m512i lo = _mm512_shuffle_epi8(Table16(k.rows[j][1][p]), _mm512_and_si512(s, Set8(0x0F)));
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
                               const SlicedTables& st, const std::uint8_t* in, std::uint8_t* out,
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
          y[r] = Lookup256(st.third[p][i], x[Source(kDecipher, p)]);
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
  if (blocks >= kSlicedThreshold && k.hasRows) {
    SlicedTables st;
    SplitTableIII(t.III, &st);
    // Each batch reads all of its input before writing any output, so
    // in-place processing is safe.
    while (blocks >= kSlicedThreshold) {
      const std::size_t n = blocks < kLanes ? blocks : kLanes;
      Sliced<kDecipher>(t, k, st, in, out, n);
      in += 16 * n;
      out += 16 * n;
      blocks -= n;
    }
  }
  for (; blocks > 0; --blocks, in += 16, out += 16) SingleBlock<kDecipher>(t, k, in, out);
}

}  // namespace

bool CpuHasAvx512Engine() {
  __builtin_cpu_init();
  return __builtin_cpu_supports("avx512f") && __builtin_cpu_supports("avx512bw") &&
         __builtin_cpu_supports("avx512vl") && __builtin_cpu_supports("avx512vbmi");
}

void BuildRowsAvx512(const WbAesDirTables& tables, PreparedKey* key) { BuildRows(tables, key); }

void ProcessBlocksAvx512(const WbAesDirTables& tables, bool decipher, const PreparedKey& key,
                         const std::uint8_t* in, std::uint8_t* out, std::size_t blocks) {
  if (decipher) {
    Run<true>(tables, key, in, out, blocks);
  } else {
    Run<false>(tables, key, in, out, blocks);
  }
}

}  // namespace wbaes
}  // namespace OxConfigMgr

#pragma GCC diagnostic pop

#endif  // OXCFG_WBAES_HAVE_AVX512
