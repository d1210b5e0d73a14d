// The stage functions of the white-box cipher, written for clarity: they are
// the definition that the optimised block path (wbaes_block.cpp) must match,
// and ReferenceBlock composes them literally.
#include "security/wbaes_internal.h"

#include <cstring>

namespace OxConfigMgr {
namespace wbaes {

int init_key(const std::uint8_t* keyMaterial, int rounds, std::uint8_t* roundKeys) {
  if (keyMaterial == nullptr || roundKeys == nullptr) return kErrNullPointer;
  if (rounds < 1 || rounds > static_cast<int>(kMaxRounds)) return kErrKeySize;
  for (int b = 0; b <= rounds; ++b) {
    for (int c = 0; c < 4; ++c) {
      for (int r = 0; r < 4; ++r) {
        // The mask byte follows the position in the whole block, not in the
        // round key: consecutive round keys start on different mask phases.
        const int i = 4 + 16 * b + 4 * c + r;
        roundKeys[16 * b + 4 * r + c] =
            static_cast<std::uint8_t>(keyMaterial[i] ^ keyMaterial[i % 3]);
      }
    }
  }
  return kOk;
}

int do_table_I(const std::uint8_t* in, std::uint8_t* state, const std::uint8_t* table) {
  if (in == nullptr || state == nullptr || table == nullptr) return kErrNullPointer;
  std::uint8_t tmp[16];
  for (int r = 0; r < 4; ++r) {
    for (int c = 0; c < 4; ++c) {
      const int p = 4 * r + c;
      const std::uint8_t b = in[r + 4 * c];
      const std::uint8_t* t = table + 16 * p;
      tmp[p] = static_cast<std::uint8_t>((t[b >> 4] << 4) ^ t[b & 0x0F]);
    }
  }
  std::memcpy(state, tmp, sizeof tmp);  // `in` may alias `state`
  return kOk;
}

int do_table_key(std::uint8_t* state, const std::uint8_t* roundKey, const std::uint8_t* table) {
  if (state == nullptr || roundKey == nullptr || table == nullptr) return kErrNullPointer;
  for (int p = 0; p < 16; ++p) {
    const std::uint8_t s = state[p];
    const std::uint8_t k = roundKey[p];
    const std::uint8_t* t = table + 256 * p;
    const std::uint8_t hi = t[(s >> 4) * 16 + (k >> 4)] >> 4;
    const std::uint8_t lo = t[(s & 0x0F) * 16 + (k & 0x0F)] >> 4;
    state[p] = static_cast<std::uint8_t>((hi << 4) | lo);
  }
  return kOk;
}

int do_table_II(std::uint8_t* state, const std::uint8_t* roundKey, const std::uint8_t* table) {
  return do_table_key(state, roundKey, table);
}

int do_table_VI(std::uint8_t* state, const std::uint8_t* roundKey, const std::uint8_t* table) {
  return do_table_key(state, roundKey, table);
}

int do_table_III(const std::uint8_t* state, std::uint8_t* partial, const std::uint8_t* table) {
  if (state == nullptr || partial == nullptr || table == nullptr) return kErrNullPointer;
  for (int r = 0; r < 4; ++r) {
    for (int c = 0; c < 4; ++c) {
      const int p = 4 * r + c;
      const std::uint8_t* e = table + 4 * (256 * p + state[p]);
      for (int i = 0; i < 4; ++i) partial[4 * (4 * i + c) + r] = e[i];
    }
  }
  return kOk;
}

int do_table_IV(const std::uint8_t* partial, std::uint8_t* state, const std::uint8_t* table) {
  if (partial == nullptr || state == nullptr || table == nullptr) return kErrNullPointer;
  for (int q = 0; q < 16; ++q) {
    std::uint8_t acc = partial[4 * q];
    for (int s = 0; s < 3; ++s) {
      acc = do_xor_hi_lo(partial[4 * q + s + 1], acc, table + 256 * (3 * q + s));
    }
    state[q] = acc;
  }
  return kOk;
}

int do_table_V(std::uint8_t* state, const std::uint8_t* table) {
  if (state == nullptr || table == nullptr) return kErrNullPointer;
  for (int p = 0; p < 16; ++p) state[p] = table[256 * p + state[p]];
  return kOk;
}

std::uint8_t do_xor(std::uint8_t a, std::uint8_t b, const std::uint8_t* table) {
  const unsigned index = (a & 0x0Fu) * 16u + (b & 0x0Fu);
  // Two results per byte: the low nibble answers index, the high nibble
  // index + 128. Selecting by shift keeps the lookup free of branches.
  const unsigned shift = (index >> 5) & 4u;
  return static_cast<std::uint8_t>((table[index & 0x7Fu] >> shift) & 0x0Fu);
}

std::uint8_t do_xor_hi_lo(std::uint8_t x, std::uint8_t y, const std::uint8_t* table) {
  const std::uint8_t hi =
      do_xor(static_cast<std::uint8_t>(x >> 4), static_cast<std::uint8_t>(y >> 4), table);
  const std::uint8_t lo = do_xor(x & 0x0F, y & 0x0F, table + 128);
  return static_cast<std::uint8_t>((hi << 4) | lo);
}

int rotate_word(std::uint8_t* word, int n) {
  if (word == nullptr) return kErrNullPointer;
  if (n < 1 || n > 3) return kErrRotation;
  std::uint8_t tmp[4];
  for (int i = 0; i < 4; ++i) tmp[i] = word[(i + n) & 3];
  std::memcpy(word, tmp, sizeof tmp);
  return kOk;
}

int shift_rows(std::uint8_t* state) {
  if (state == nullptr) return kErrNullPointer;
  for (int r = 1; r < 4; ++r) rotate_word(state + 4 * r, r);
  return kOk;
}

int inv_shift_rows(std::uint8_t* state) {
  if (state == nullptr) return kErrNullPointer;
  for (int r = 1; r < 4; ++r) rotate_word(state + 4 * r, 4 - r);
  return kOk;
}

int ReferenceBlock(const WbAesDirTables& t, bool decipher, const std::uint8_t* in,
                   const std::uint8_t* roundKeys, int rounds, std::uint8_t* out) {
  if (in == nullptr || roundKeys == nullptr || out == nullptr) return kErrNullPointer;
  if (rounds < 1 || rounds > static_cast<int>(kMaxRounds)) return kErrKeySize;
  int (*const shift)(std::uint8_t*) = decipher ? inv_shift_rows : shift_rows;
  std::uint8_t state[16];
  std::uint8_t partial[kPartialSize];
  do_table_I(in, state, t.I);
  for (int j = 0; j + 1 < rounds; ++j) {
    do_table_II(state, roundKeys + 16 * j, t.II);
    shift(state);
    do_table_III(state, partial, t.III);
    do_table_IV(partial, state, t.IV);
  }
  do_table_II(state, roundKeys + 16 * (rounds - 1), t.II);
  shift(state);
  do_table_V(state, t.V);
  do_table_VI(state, roundKeys + 16 * rounds, t.VI);
  for (int r = 0; r < 4; ++r) {
    for (int c = 0; c < 4; ++c) out[r + 4 * c] = state[4 * r + c];
  }
  return kOk;
}

int nyxwbaes_dynamic_encrypt_block_128(const std::uint8_t* in, const std::uint8_t* roundKeys,
                                       int rounds, std::uint8_t* out) {
  return ProcessBlock(kProductionTables.enc, false, in, roundKeys, rounds, out);
}

int nyxwbaes_dynamic_decrypt_block_128(const std::uint8_t* in, const std::uint8_t* roundKeys,
                                       int rounds, std::uint8_t* out) {
  return ProcessBlock(kProductionTables.dec, true, in, roundKeys, rounds, out);
}

}  // namespace wbaes
}  // namespace OxConfigMgr
