// Optimised block engine. Same result as ReferenceBlock (wbaes_stages.cpp),
// stage for stage; what changes is only how the lookups are scheduled:
//  - the key rows of tables II/VI are selected once per call (PreparedKey);
//  - between table IV and table II the state is kept as two "nibble << 4"
//    values per position, the very offsets table II is indexed with, instead
//    of being packed into a byte and split again;
//  - table III entries are read as one 32-bit word and the row shift is
//    folded into which state byte indexes which position's table;
//  - table IV takes the partial result as do_xor's row argument, so the
//    packed-nibble selection depends only on the partial (known early) and
//    the accumulator chain is one load, one shift and one mask per step.
// All loops have fixed trip counts; nothing branches on data.
#include "security/wbaes_block.h"

#include <cstring>

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

template <bool kDecipher>
void BlockScalar(const WbAesDirTables& t, const PreparedKey& k, const std::uint8_t* in,
                 std::uint8_t* out) {
  const int rounds = k.rounds;
  std::uint32_t hi16[16];
  std::uint32_t lo16[16];
#pragma GCC unroll 16
  for (int p = 0; p < 16; ++p) {
    const std::uint32_t b = in[(p >> 2) + 4 * (p & 3)];
    const std::uint8_t* T = t.I + 16 * p;
    const std::uint32_t s = ((static_cast<std::uint32_t>(T[b >> 4]) << 4) ^ T[b & 15]) & 0xFF;
    hi16[p] = s & 0xF0;
    lo16[p] = (s << 4) & 0xF0;
  }

  std::uint32_t x[16];
  for (int j = 0; j + 1 < rounds; ++j) {
#pragma GCC unroll 16
    for (int p = 0; p < 16; ++p) {
      x[p] = (t.II[k.hiOffset[j][p] + hi16[p]] & 0xF0u) | (t.II[k.loOffset[j][p] + lo16[p]] >> 4);
    }
    std::uint32_t w[16];
#pragma GCC unroll 16
    for (int p = 0; p < 16; ++p) w[p] = Load32LE(t.III + 1024 * p + 4 * x[Source<kDecipher>(p)]);
#pragma GCC unroll 16
    for (int q = 0; q < 16; ++q) {
      const int shift = 8 * (q >> 2);
      const int c = q & 3;
      const std::uint32_t y0 = (w[c] >> shift) & 0xFF;
      std::uint32_t ah = y0 >> 4;
      std::uint32_t al = y0 & 15;
#pragma GCC unroll 3
      for (int s = 0; s < 3; ++s) {
        const std::uint32_t y = (w[4 * (s + 1) + c] >> shift) & 0xFF;
        const std::uint8_t* T = t.IV + 256 * (3 * q + s);
        ah = (T[(y & 0x70) | ah] >> ((y >> 5) & 4)) & 15;
        al = (T[128 + (((y << 4) & 0x70) | al)] >> ((y >> 1) & 4)) & 15;
      }
      hi16[q] = ah << 4;
      lo16[q] = al << 4;
    }
  }

  const int last = rounds - 1;
#pragma GCC unroll 16
  for (int p = 0; p < 16; ++p) {
    x[p] = (t.II[k.hiOffset[last][p] + hi16[p]] & 0xF0u) | (t.II[k.loOffset[last][p] + lo16[p]] >> 4);
  }
#pragma GCC unroll 16
  for (int p = 0; p < 16; ++p) {
    const std::uint32_t v = t.V[256 * p + x[Source<kDecipher>(p)]];
    const std::uint32_t o =
        (t.VI[k.hiOffset[rounds][p] + (v & 0xF0)] & 0xF0u) |
        (t.VI[k.loOffset[rounds][p] + ((v << 4) & 0xF0)] >> 4);
    out[(p >> 2) + 4 * (p & 3)] = static_cast<std::uint8_t>(o);
  }
}

}  // namespace

void PrepareKey(const WbAesDirTables& tables, const std::uint8_t* roundKeys, int rounds,
                std::size_t blocks, PreparedKey* key) {
  key->rounds = rounds;
  key->hasRows = false;
  for (int j = 0; j <= rounds; ++j) {
    const std::uint8_t* table = j < rounds ? tables.II : tables.VI;
    for (int p = 0; p < 16; ++p) {
      const std::uint8_t kb = roundKeys[16 * j + p];
      key->hiOffset[j][p] = 256u * static_cast<unsigned>(p) + (kb >> 4);
      key->loOffset[j][p] = 256u * static_cast<unsigned>(p) + (kb & 15u);
    }
  }
#ifdef OXCFG_WBAES_HAVE_AVX512
  // A lone block is cheaper with gathers than with the rows' set-up.
  if (blocks > 1 && CpuHasAvx512Engine()) BuildRowsAvx512(tables, key);
#else
  (void)blocks;
#endif
}

void WipePreparedKey(PreparedKey* key) { OPENSSL_cleanse(key, sizeof *key); }

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
  if (engine == Engine::kAvx512 || (engine == Engine::kAuto && CpuHasAvx512Engine())) {
    ProcessBlocksAvx512(tables, decipher, key, in, out, blocks);
    return;
  }
#endif
  (void)engine;
  for (std::size_t b = 0; b < blocks; ++b) {
    if (decipher) {
      BlockScalar<true>(tables, key, in + 16 * b, out + 16 * b);
    } else {
      BlockScalar<false>(tables, key, in + 16 * b, out + 16 * b);
    }
  }
}

int ProcessBlock(const WbAesDirTables& tables, bool decipher, const std::uint8_t* in,
                 const std::uint8_t* roundKeys, int rounds, std::uint8_t* out) {
  if (in == nullptr || roundKeys == nullptr || out == nullptr) return kErrNullPointer;
  if (rounds < 1 || rounds > static_cast<int>(kMaxRounds)) return kErrKeySize;
  PreparedKey key;
  PrepareKey(tables, roundKeys, rounds, 1, &key);
  ProcessBlocks(tables, decipher, key, in, out, 1);
  WipePreparedKey(&key);
  return kOk;
}

}  // namespace wbaes
}  // namespace OxConfigMgr
