// The optimised block engine of the white-box cipher, shared by the block
// functions and the modes. It computes exactly the composition of the stage
// functions of wbaes_internal.h.
#ifndef OXCFG_SECURITY_WBAES_BLOCK_H
#define OXCFG_SECURITY_WBAES_BLOCK_H

#include "security/wbaes_internal.h"

#include <cstddef>
#include <cstdint>
#include <memory>

namespace OxConfigMgr {
namespace wbaes {

// The state position whose byte lands on position p after the row shift
// (inverse row shift when deciphering).
constexpr int Source(bool decipher, int p) {
  return 4 * (p >> 2) + ((decipher ? (p & 3) - (p >> 2) : (p & 3) + (p >> 2)) & 3);
}

// Layouts derived from one direction's tables for the engines' lookups.
// Key-independent: the linked-in table set's are built once per process and
// direction; any other set gets its own per call (about 465 KiB).
//
// Tables III and IV fused. Output q = 4i + c of table IV starts from
// partial 0 and is combined with partials 1..3, each a byte of table III's
// entry at position (r, c) for the byte x that position looks up. A partial
// fixes, as do_xor's row argument, one 16-entry line of the step's packed
// nibble table for the high nibbles and one for the low nibbles, so each
// step is a 16-entry lookup by the accumulator nibble. Lines are stored
// biased: entry b of output row i holds 16i + result, which is directly the
// index of the same output's line in the next step's 64 bytes (and of its
// key row, see PreparedKey::rows), so steps chain or compose without
// arithmetic.
//  lines[p - 4][x][half]: for position p = 4r + c, r >= 1: bytes 16i..16i+15
//      = the biased line of step r - 1 of output (i, c), half 0 for the high
//      nibbles, 1 for the low ones.
//  start[c][x]: byte i = 16i + high nibble, byte 4 + i = 16i + low nibble of
//      partial 0 of output (i, c) (table III at position (0, c)).
// Table III by output byte: third[p][i][x] = III[p][x][i], each (position,
// output byte) a contiguous 256-byte table (the vector engine's runs).
// Key tables transposed: keyLines[0 for II, 1 for VI][p][k][a] = entry
// a * 16 + k of position p's table, so that the row a key nibble selects is
// 16 contiguous bytes.
struct DerivedTables {
  alignas(64) std::uint8_t lines[12][256][2][64];
  alignas(64) std::uint8_t start[4][256][8];
  alignas(64) std::uint8_t third[16][4][256];
  alignas(64) std::uint8_t keyLines[2][16][16][16];
  // For block-sliced engines on 16-entry shuffles (one block per byte lane,
  // every lane reading the same table):
  //  thirdWords[p][x]: table III's entry at position p, its four output
  //      bytes; for p >= 4 each in the combining form that slicedFourth's
  //      lookups take: bits 4..6 = high nibble >> 1, bit 7 = its low bit,
  //      bits 0..2 = low nibble >> 1, bit 3 = its low bit.
  //  slicedFifth[p]: table V at position p as 16 rows of 16 entries, each
  //      half (rows 0..7, 8..15) stored as differences: row h = T_h XOR
  //      T_{h+1}, the half's last row as it is. The XOR of the rows from a
  //      lane's own to the end of its half is then the lane's row.
  //  slicedFourth[q][step][half]: do_xor of that packed table of table IV
  //      as 8 rows of two, entry b of row j = do_xor(2j, b) | do_xor(2j + 1,
  //      b) << 4, stored as differences as above.
  alignas(64) std::uint8_t thirdWords[16][256][4];
  alignas(64) std::uint8_t slicedFifth[16][16][16];
  alignas(64) std::uint8_t slicedFourth[16][3][2][8][16];
  // When every combining step of table IV is nibble XOR between encodings
  // (as in the sets the generator makes), an output's three steps are one
  // sum: out(d0(n0) ^ d1(n1) ^ d2(n2) ^ d3(n3)) per nibble half, n_r the
  // nibble of partial r, and hasFourthSum is set (other sets go through
  // slicedFourth):
  //  thirdSum[p][x]: thirdWords' entry with each partial's nibbles already
  //      decoded (d_r of its output), so the XOR of a column's four entries
  //      holds byte by byte the sum of its four outputs.
  //  fourthOut[q][half]: the `out` of output q's nibble half.
  alignas(64) std::uint8_t thirdSum[16][256][4];
  alignas(64) std::uint8_t fourthOut[16][2][16];
  bool hasFourthSum;
};

// Round keys bound to one direction's key-mixing tables, built once per call
// so that no block repeats the work. Lives on the caller's stack; wipe it
// (WipePreparedKey) before returning.
struct PreparedKey {
  // The round keys as init_key unpacks them (used when no derived tables
  // could be had).
  std::uint8_t roundKeys[kRoundKeyAreaSize];
  // The key-mixing rows each round key selects, positions in column order
  // (RowSlot): rows[j][0][RowSlot(p)][a] = entry (a * 16 + key high nibble)
  // of position p's table (II, or VI for the last key), high nibble kept in
  // place; rows[j][1][RowSlot(p)][a] = entry (a * 16 + key low nibble), high
  // nibble moved down. Key mixing of a state byte s is then
  // rows[j][0][slot][s >> 4] | rows[j][1][slot][s & 15]; the four positions
  // of a column are 64 contiguous bytes, indexed by a biased line entry.
  alignas(64) std::uint8_t rows[kMaxRounds + 1][2][16][16];
  int rounds;
  // The derived tables of `tables` (null when memory for them was short:
  // blocks then go through the stage functions), and the copy this key owns
  // when they are not the linked-in set's. Key-independent, not wiped.
  const DerivedTables* derived;
  std::unique_ptr<DerivedTables> ownDerived;
};

// Where position p = 4r + c sits in PreparedKey::rows: column by column.
constexpr int RowSlot(int p) { return 4 * (p & 3) + (p >> 2); }

// The single-block paths keep the state between rounds as 16 key-mixed
// bytes, column by column: position p at StateAt(p).
constexpr int StateAt(int p) { return 4 * (p & 3) + (p >> 2); }

inline std::uint8_t KeyMixByte(const PreparedKey& k, int j, int p, std::uint32_t s) {
  const int slot = RowSlot(p);
  return static_cast<std::uint8_t>(k.rows[j][0][slot][s >> 4] | k.rows[j][1][slot][s & 15]);
}

// A single block's first stages: table I on `in` (XOR `chain` with
// kChained) and the first key mixing, into state (StateAt order).
template <bool kChained>
inline void EnterBlock(const WbAesDirTables& t, const PreparedKey& k, const std::uint8_t* in,
                       const std::uint8_t* chain, std::uint8_t* state) {
#pragma GCC unroll 16
  for (int p = 0; p < 16; ++p) {
    const int at = (p >> 2) + 4 * (p & 3);
    const std::uint32_t b = kChained ? in[at] ^ chain[at] : in[at];
    const std::uint8_t* T = t.I + 16 * p;
    const std::uint32_t s = ((static_cast<std::uint32_t>(T[b >> 4]) << 4) ^ T[b & 15]) & 0xFF;
    state[StateAt(p)] = KeyMixByte(k, 0, p, s);
  }
}

// Its last stages: row shift, table V and the last key mixing (table VI)
// from the state the last inner round left.
template <bool kDecipher>
inline void LeaveBlock(const WbAesDirTables& t, const PreparedKey& k, const std::uint8_t* state,
                       std::uint8_t* out) {
#pragma GCC unroll 16
  for (int p = 0; p < 16; ++p) {
    const std::uint32_t v = t.V[256 * p + state[StateAt(Source(kDecipher, p))]];
    out[(p >> 2) + 4 * (p & 3)] = KeyMixByte(k, k.rounds, p, v);
  }
}

// What column c's four outputs read in one inner round, selected by the
// key-mixed state x: the start values and the lines of combining steps 1..3.
struct ColumnLines {
  const std::uint8_t* start;
  const std::uint8_t (*step[3])[64];
};

template <bool kDecipher>
inline ColumnLines SelectColumn(const DerivedTables& d, const std::uint8_t* x, int c) {
  auto at = [x](int p) { return x[StateAt(Source(kDecipher, p))]; };
  return {d.start[c][at(c)], {d.lines[c][at(4 + c)], d.lines[4 + c][at(8 + c)],
                              d.lines[8 + c][at(12 + c)]}};
}

// An engine's single block: in (XOR chain, for the chained variant) into
// out.
using BlockFn = void (*)(const WbAesDirTables& t, const PreparedKey& k, const std::uint8_t* in,
                         const std::uint8_t* chain, std::uint8_t* out);
// An engine's run of independent blocks in one direction.
using RunFn = void (*)(const WbAesDirTables& t, const PreparedKey& k, const std::uint8_t* in,
                       std::uint8_t* out, std::size_t blocks);

// Every engine's entry points, written once over its own functions: a run
// in the direction asked for, and CBC enciphering as a chain of single
// blocks, each from the output block before it (so `iv` may be the block
// just before `out`, and in == out works).
template <RunFn kEncipher, RunFn kDecipher>
inline void RunDirection(bool decipher, const WbAesDirTables& t, const PreparedKey& k,
                         const std::uint8_t* in, std::uint8_t* out, std::size_t blocks) {
  (decipher ? kDecipher : kEncipher)(t, k, in, out, blocks);
}
template <BlockFn kChainedBlock>
inline void ChainBlocks(const WbAesDirTables& t, const PreparedKey& k, const std::uint8_t* iv,
                        const std::uint8_t* in, std::uint8_t* out, std::size_t blocks) {
  const std::uint8_t* chain = iv;
  for (std::size_t b = 0; b < blocks; ++b) {
    kChainedBlock(t, k, in + 16 * b, chain, out + 16 * b);
    chain = out + 16 * b;
  }
}

// An engine's block-sliced batch: up to its lane count of blocks, all of
// the input read before any output is written.
using SlicedFn = void (*)(const WbAesDirTables& t, const PreparedKey& k, const DerivedTables& d,
                          const std::uint8_t* in, std::uint8_t* out, std::size_t blocks);

// Feeds a run to kSliced, kLanes blocks a batch, while at least kThreshold
// blocks are left (a batch costs the same however few of its lanes are
// used); advances in, out and blocks past what it did.
template <std::size_t kLanes, std::size_t kThreshold, SlicedFn kSliced>
inline void SlicedBatches(const WbAesDirTables& t, const PreparedKey& k, const std::uint8_t*& in,
                          std::uint8_t*& out, std::size_t& blocks) {
  while (blocks >= kThreshold) {
    const std::size_t n = blocks < kLanes ? blocks : kLanes;
    kSliced(t, k, *k.derived, in, out, n);
    in += 16 * n;
    out += 16 * n;
    blocks -= n;
  }
}

// `roundKeys`: rounds + 1 row-major round keys as init_key unpacks them.
// rounds must be 1..kMaxRounds (not checked).
void PrepareKey(const WbAesDirTables& tables, const std::uint8_t* roundKeys, int rounds,
                PreparedKey* key);
// Wipes the key-dependent parts.
void WipePreparedKey(PreparedKey* key);

// Implementations of the block engine; all give identical results.
enum class Engine {
  kAuto,      // the one SelectedEngine() names
  kPortable,  // plain C++, any processor: independent blocks a few at a
              // time, interleaved so that their table reads overlap
  kAvx2,      // x86-64 with AVX2: runs of blocks are processed 32 at a
              // time with 16-entry byte shuffles (vpshufb) and scalar
              // loads for table III; single blocks through tables III and
              // IV fused
  kAvx512,    // x86-64 with AVX-512 F/BW/VL/VBMI: runs of blocks are
              // processed 64 at a time with in-register table lookups,
              // single blocks through tables III and IV fused
};

// Whether `engine` can run here (kAuto and kPortable always can).
bool EngineAvailable(Engine engine);

// The engine kAuto stands for: the one ForceEngine set, otherwise the
// fastest one this processor runs (AVX-512, then AVX2, then portable).
Engine SelectedEngine();

// "portable", "avx2", "avx512" ("auto" for kAuto).
const char* EngineName(Engine engine);

// For tests and benchmarks only: makes kAuto stand for `engine` in this
// process (kAuto restores the choice by processor). Returns false, changing
// nothing, when `engine` cannot run here.
bool ForceEngine(Engine engine);

// Enciphers (tables.enc, decipher = false) or deciphers (tables.dec,
// decipher = true) `blocks` independent 16-byte blocks. `in` and `out` may be
// the same buffer (not partially overlapping). `engine` must be available;
// only tests pick one other than kAuto.
void ProcessBlocks(const WbAesDirTables& tables, bool decipher, const PreparedKey& key,
                   const std::uint8_t* in, std::uint8_t* out, std::size_t blocks,
                   Engine engine = Engine::kAuto);

// CBC enciphering of `blocks` blocks: block b is enciphered from in[b] XOR
// the previous output block, `iv` for the first. `in` and `out` may be the
// same buffer; `iv` may be the output block just before `out`.
void EncipherChain(const WbAesDirTables& tables, const PreparedKey& key, const std::uint8_t* iv,
                   const std::uint8_t* in, std::uint8_t* out, std::size_t blocks,
                   Engine engine = Engine::kAuto);

#if defined(__x86_64__) && (defined(__GNUC__) || defined(__clang__))
#define OXCFG_WBAES_HAVE_AVX2 1
// Defined in wbaes_block_avx2.cpp, on the same terms as the AVX-512 ones.
bool CpuHasAvx2Engine();
void ProcessBlocksAvx2(const WbAesDirTables& tables, bool decipher, const PreparedKey& key,
                       const std::uint8_t* in, std::uint8_t* out, std::size_t blocks);
void EncipherChainAvx2(const WbAesDirTables& tables, const PreparedKey& key,
                       const std::uint8_t* iv, const std::uint8_t* in, std::uint8_t* out,
                       std::size_t blocks);

#define OXCFG_WBAES_HAVE_AVX512 1
// Defined in wbaes_block_avx512.cpp; callers check the processor and that
// the key has derived tables first.
bool CpuHasAvx512Engine();
void ProcessBlocksAvx512(const WbAesDirTables& tables, bool decipher, const PreparedKey& key,
                         const std::uint8_t* in, std::uint8_t* out, std::size_t blocks);
void EncipherChainAvx512(const WbAesDirTables& tables, const PreparedKey& key,
                         const std::uint8_t* iv, const std::uint8_t* in, std::uint8_t* out,
                         std::size_t blocks);
#endif

}  // namespace wbaes
}  // namespace OxConfigMgr

#endif  // OXCFG_SECURITY_WBAES_BLOCK_H
