// Portable block engine, and the dispatch between engines. Same result as
// ReferenceBlock (wbaes_stages.cpp), stage for stage; what changes is only
// how the lookups are scheduled:
//  - the key rows of tables II/VI are selected once per call (PreparedKey);
//  - between table IV and table II the state stays as separate nibbles,
//    which is how table IV yields it and how table II indexes with it;
//  - table III entries are read as one 32-bit word, and the row shift is
//    folded into which state byte indexes which position's table;
//  - table IV takes the partial result as do_xor's row argument: the packed
//    table's line and nibble half then depend on the partial alone, are
//    derived for four outputs at once from table III's word, and each step of
//    the accumulator chain is one load, one shift and one mask.
// All loops have fixed trip counts; nothing branches on data.
#include "security/wbaes_block.h"

#include <cstring>

#include <string.h>  // explicit_bzero

#include <openssl/crypto.h>

namespace OxConfigMgr {
namespace wbaes {
namespace {

inline std::uint32_t Load32LE(const std::uint8_t* p) {
  std::uint32_t v;
  std::memcpy(&v, p, sizeof v);
#if defined(__BYTE_ORDER__) && __BYTE_ORDER__ == __ORDER_BIG_ENDIAN__
  v = __builtin_bswap32(v);
#endif
  return v;
}

// The state position whose byte lands on position p after the row shift.
template <bool kDecipher>
constexpr int Source(int p) {
  const int r = p >> 2;
  const int c = p & 3;
  return 4 * r + ((kDecipher ? c - r : c + r) & 3);
}

// The state between the stages that table IV writes and table II reads: the
// high and low nibble of each position's encoded byte, kept apart because
// table II indexes with each of them (times 16) and table IV yields them
// apart.
struct Nibbles {
  std::uint32_t hi[16];
  std::uint32_t lo[16];
};

// Per-round scratch of table IV, filled 4 outputs at a time from table III's
// 32-bit entries. For output q = 4i + c and combining step s, at [s][4c + i]:
// row: bits 4..6 of the row nibble (do_xor's first argument) in place, that
// is the line of the packed table; sel: 4 when the row nibble is 8 or more
// (the result is then the high nibble of the packed byte), else 0.
struct Combine {
  alignas(16) std::uint8_t rowHi[3][16];
  alignas(16) std::uint8_t selHi[3][16];
  alignas(16) std::uint8_t rowLo[3][16];
  alignas(16) std::uint8_t selLo[3][16];
  alignas(16) std::uint8_t accHi[16];  // partial 0's nibbles: the start values
  alignas(16) std::uint8_t accLo[16];
};

inline void Store32(std::uint8_t* p, std::uint32_t v) {
#if defined(__BYTE_ORDER__) && __BYTE_ORDER__ == __ORDER_BIG_ENDIAN__
  v = __builtin_bswap32(v);
#endif
  std::memcpy(p, &v, sizeof v);
}

// Key mixing (table II or VI) of all positions; x[p] = mixed byte.
inline void KeyMix(const std::uint8_t* table, const PreparedKey& k, int j, const Nibbles& n,
                   std::uint32_t* x) {
#pragma GCC unroll 16
  for (int p = 0; p < 16; ++p) {
    x[p] = (table[k.hiOffset[j][p] + (n.hi[p] << 4)] & 0xF0u) |
           (table[k.loOffset[j][p] + (n.lo[p] << 4)] >> 4);
  }
}

// One inner round: key mixing, row shift, table III, table IV. Kept out of
// line so that each round starts with few live values; the compiler then
// addresses every table through one base register and constant offsets.
template <bool kDecipher>
__attribute__((noinline)) void Round(const WbAesDirTables& t, const PreparedKey& k, int j,
                                     Nibbles& n) {
  std::uint32_t x[16];
  KeyMix(t.II, k, j, n, x);
  Combine cb;
#pragma GCC unroll 4
  for (int c = 0; c < 4; ++c) {
    // Table III entry of position (r, c) after the row shift: byte i is
    // partial r of output (i, c).
    const std::uint32_t w0 = Load32LE(t.III + 1024 * c + 4 * x[Source<kDecipher>(c)]);
    Store32(cb.accHi + 4 * c, (w0 >> 4) & 0x0F0F0F0Fu);
    Store32(cb.accLo + 4 * c, w0 & 0x0F0F0F0Fu);
#pragma GCC unroll 3
    for (int s = 0; s < 3; ++s) {
      const int p = 4 * (s + 1) + c;
      const std::uint32_t w = Load32LE(t.III + 1024 * p + 4 * x[Source<kDecipher>(p)]);
      Store32(cb.rowHi[s] + 4 * c, w & 0x70707070u);
      Store32(cb.selHi[s] + 4 * c, (w >> 5) & 0x04040404u);
      Store32(cb.rowLo[s] + 4 * c, (w << 4) & 0x70707070u);
      Store32(cb.selLo[s] + 4 * c, (w >> 1) & 0x04040404u);
    }
  }
  // Keep the scratch in memory: reading its bytes back is one load each,
  // where extracting them from registers costs a shift and a move.
#if defined(__GNUC__)
  __asm__ __volatile__("" : : "r"(&cb) : "memory");
#endif
#pragma GCC unroll 16
  for (int q = 0; q < 16; ++q) {
    const int at = 4 * (q & 3) + (q >> 2);
    std::uint32_t ah = cb.accHi[at];
    std::uint32_t al = cb.accLo[at];
#pragma GCC unroll 3
    for (int s = 0; s < 3; ++s) {
      const std::uint8_t* T = t.IV + 256 * (3 * q + s);
      ah = (static_cast<std::uint32_t>(T[cb.rowHi[s][at] | ah]) >> cb.selHi[s][at]) & 15u;
      al = (static_cast<std::uint32_t>(T[128 + (cb.rowLo[s][at] | al)]) >> cb.selLo[s][at]) & 15u;
    }
    n.hi[q] = ah;
    n.lo[q] = al;
  }
}

template <bool kDecipher>
void BlockPortable(const WbAesDirTables& t, const PreparedKey& k, const std::uint8_t* in,
                   std::uint8_t* out) {
  Nibbles n;
#pragma GCC unroll 16
  for (int p = 0; p < 16; ++p) {
    const std::uint32_t b = in[(p >> 2) + 4 * (p & 3)];
    const std::uint8_t* T = t.I + 16 * p;
    const std::uint32_t s = ((static_cast<std::uint32_t>(T[b >> 4]) << 4) ^ T[b & 15]) & 0xFF;
    n.hi[p] = s >> 4;
    n.lo[p] = s & 15;
  }
  const int rounds = k.rounds;
  for (int j = 0; j + 1 < rounds; ++j) Round<kDecipher>(t, k, j, n);

  std::uint32_t x[16];
  KeyMix(t.II, k, rounds - 1, n, x);
#pragma GCC unroll 16
  for (int p = 0; p < 16; ++p) {
    const std::uint32_t v = t.V[256 * p + x[Source<kDecipher>(p)]];
    n.hi[p] = v >> 4;
    n.lo[p] = v & 15;
  }
  KeyMix(t.VI, k, rounds, n, x);
#pragma GCC unroll 16
  for (int p = 0; p < 16; ++p) out[(p >> 2) + 4 * (p & 3)] = static_cast<std::uint8_t>(x[p]);
}

}  // namespace

void PrepareKey(const WbAesDirTables& tables, const std::uint8_t* roundKeys, int rounds,
                PreparedKey* key) {
  key->rounds = rounds;
  key->derived = nullptr;
  for (int j = 0; j <= rounds; ++j) {
    for (int p = 0; p < 16; ++p) {
      const std::uint8_t kb = roundKeys[16 * j + p];
      key->hiOffset[j][p] = 256u * static_cast<unsigned>(p) + (kb >> 4);
      key->loOffset[j][p] = 256u * static_cast<unsigned>(p) + (kb & 15u);
    }
  }
#ifdef OXCFG_WBAES_HAVE_AVX512
  if (CpuHasAvx512Engine()) PrepareAvx512(tables, key);
#else
  (void)tables;
#endif
}

void WipePreparedKey(PreparedKey* key) {
  // Some 10 KiB per call: explicit_bzero runs at memset speed where
  // OPENSSL_cleanse goes byte by byte, and the compiler may not drop it
  // either.
  explicit_bzero(key->hiOffset, sizeof key->hiOffset);
  explicit_bzero(key->loOffset, sizeof key->loOffset);
  explicit_bzero(key->rows, sizeof key->rows);
}

#ifndef OXCFG_WBAES_HAVE_AVX512
// Without the vector engine no derived tables are ever made.
void DerivedTablesDeleter::operator()(DerivedTables*) const {}
#endif

bool EngineAvailable(Engine engine) {
  switch (engine) {
    case Engine::kAuto:
    case Engine::kPortable: return true;
    case Engine::kAvx512:
#ifdef OXCFG_WBAES_HAVE_AVX512
      return CpuHasAvx512Engine();
#else
      return false;
#endif
  }
  return false;
}

void ProcessBlocks(const WbAesDirTables& tables, bool decipher, const PreparedKey& key,
                   const std::uint8_t* in, std::uint8_t* out, std::size_t blocks, Engine engine) {
#ifdef OXCFG_WBAES_HAVE_AVX512
  if (engine != Engine::kPortable && key.derived != nullptr) {
    ProcessBlocksAvx512(tables, decipher, key, in, out, blocks);
    return;
  }
#endif
  (void)engine;
  for (std::size_t b = 0; b < blocks; ++b) {
    if (decipher) {
      BlockPortable<true>(tables, key, in + 16 * b, out + 16 * b);
    } else {
      BlockPortable<false>(tables, key, in + 16 * b, out + 16 * b);
    }
  }
}

void EncipherChain(const WbAesDirTables& tables, const PreparedKey& key, const std::uint8_t* iv,
                   const std::uint8_t* in, std::uint8_t* out, std::size_t blocks, Engine engine) {
#ifdef OXCFG_WBAES_HAVE_AVX512
  if (engine != Engine::kPortable && key.derived != nullptr) {
    EncipherChainAvx512(tables, key, iv, in, out, blocks);
    return;
  }
#endif
  (void)engine;
  std::uint8_t block[kBlockSize];
  const std::uint8_t* chain = iv;
  for (std::size_t b = 0; b < blocks; ++b) {
    for (std::size_t i = 0; i < kBlockSize; ++i) {
      block[i] = static_cast<std::uint8_t>(in[16 * b + i] ^ chain[i]);
    }
    BlockPortable<false>(tables, key, block, out + 16 * b);
    chain = out + 16 * b;
  }
  OPENSSL_cleanse(block, sizeof block);
}

int ProcessBlock(const WbAesDirTables& tables, bool decipher, const std::uint8_t* in,
                 const std::uint8_t* roundKeys, int rounds, std::uint8_t* out) {
  if (in == nullptr || roundKeys == nullptr || out == nullptr) return kErrNullPointer;
  if (rounds < 1 || rounds > static_cast<int>(kMaxRounds)) return kErrKeySize;
  PreparedKey key;
  PrepareKey(tables, roundKeys, rounds, &key);
  ProcessBlocks(tables, decipher, key, in, out, 1);
  WipePreparedKey(&key);
  return kOk;
}

}  // namespace wbaes
}  // namespace OxConfigMgr
