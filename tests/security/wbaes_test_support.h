// Test-only helpers for the white-box cipher: the test table set (identity
// external encodings, so its blocks are plain AES) and key material for it
// built from any AES key. The key schedule here is written independently of
// the generator's, from the AES definition.
#ifndef OXCFG_TESTS_SECURITY_WBAES_TEST_SUPPORT_H
#define OXCFG_TESTS_SECURITY_WBAES_TEST_SUPPORT_H

#include "security/wbaes_internal.h"

#include <array>
#include <cstdint>
#include <cstring>
#include <memory>
#include <stdexcept>
#include <vector>

#include <openssl/evp.h>

namespace OxConfigMgr {
namespace wbaes {
namespace testset {

// Generated into tests/security/generated/wbaes_test_tables.cpp.
extern const WbAesTables kTables;
// Mask in bytes 0..2, noise everywhere else.
extern const std::uint8_t kKeyTemplate[kKeyMaterialSize];

}  // namespace testset

namespace testsupport {

using KeyMaterial = std::array<std::uint8_t, kKeyMaterialSize>;

inline std::uint8_t XTime(std::uint8_t a) {
  return static_cast<std::uint8_t>((a << 1) ^ ((a & 0x80) ? 0x1b : 0));
}

inline std::uint8_t GfMul(std::uint8_t a, std::uint8_t b) {
  std::uint8_t p = 0;
  for (; b != 0; b >>= 1, a = XTime(a)) {
    if (b & 1) p ^= a;
  }
  return p;
}

// The AES S-box, computed (x^254 then the affine map) rather than typed in.
inline const std::array<std::uint8_t, 256>& SBox() {
  static const std::array<std::uint8_t, 256> box = [] {
    std::array<std::uint8_t, 256> s{};
    for (unsigned x = 0; x < 256; ++x) {
      std::uint8_t inv = 0;
      if (x != 0) {
        inv = 1;
        for (int i = 0; i < 254; ++i) inv = GfMul(inv, static_cast<std::uint8_t>(x));
      }
      std::uint8_t v = inv;
      std::uint8_t out = 0x63 ^ v;
      for (int i = 1; i <= 4; ++i) {
        v = static_cast<std::uint8_t>((v << 1) | (v >> 7));
        out ^= v;
      }
      s[x] = out;
    }
    return s;
  }();
  return box;
}

inline const std::array<std::uint8_t, 256>& InvSBox() {
  static const std::array<std::uint8_t, 256> box = [] {
    std::array<std::uint8_t, 256> s{};
    for (unsigned x = 0; x < 256; ++x) s[SBox()[x]] = static_cast<std::uint8_t>(x);
    return s;
  }();
  return box;
}

inline int RoundsForBits(int bits) { return bits / 32 + 6; }

// FIPS-197 key expansion: 16 * (rounds + 1) bytes, each round key column by
// column (byte r + 4c).
inline std::vector<std::uint8_t> ExpandKey(const std::uint8_t* key, int bits) {
  const int nk = bits / 32;
  const int words = 4 * (RoundsForBits(bits) + 1);
  std::vector<std::uint8_t> w(4 * static_cast<std::size_t>(words));
  std::memcpy(w.data(), key, 4 * static_cast<std::size_t>(nk));
  std::uint8_t rcon = 1;
  for (int i = nk; i < words; ++i) {
    std::uint8_t t[4];
    std::memcpy(t, &w[4 * (i - 1)], 4);
    if (i % nk == 0) {
      const std::uint8_t first = t[0];
      for (int j = 0; j < 3; ++j) t[j] = SBox()[t[j + 1]];
      t[3] = SBox()[first];
      t[0] ^= rcon;
      rcon = XTime(rcon);
    } else if (nk == 8 && i % nk == 4) {
      for (auto& b : t) b = SBox()[b];
    }
    for (int j = 0; j < 4; ++j) w[4 * i + j] = w[4 * (i - nk) + j] ^ t[j];
  }
  return w;
}

inline void InvMixColumnsInPlace(std::uint8_t* roundKey) {
  for (int c = 0; c < 4; ++c) {
    std::uint8_t* a = roundKey + 4 * c;
    const std::uint8_t b0 = a[0], b1 = a[1], b2 = a[2], b3 = a[3];
    a[0] = GfMul(b0, 14) ^ GfMul(b1, 11) ^ GfMul(b2, 13) ^ GfMul(b3, 9);
    a[1] = GfMul(b0, 9) ^ GfMul(b1, 14) ^ GfMul(b2, 11) ^ GfMul(b3, 13);
    a[2] = GfMul(b0, 13) ^ GfMul(b1, 9) ^ GfMul(b2, 14) ^ GfMul(b3, 11);
    a[3] = GfMul(b0, 11) ^ GfMul(b1, 13) ^ GfMul(b2, 9) ^ GfMul(b3, 14);
  }
}

// Stores a column-major round key into slot `slot`, masked.
inline void PutRoundKey(KeyMaterial& km, int slot, const std::uint8_t* roundKey) {
  for (int j = 0; j < 16; ++j) {
    const int i = 4 + 16 * slot + j;
    km[i] = static_cast<std::uint8_t>(roundKey[j] ^ km[i % 3]);
  }
}

// Enciphering key material for `key` (128, 192 or 256 bits) under the
// template's mask: round keys in order.
inline KeyMaterial EncKeyMaterial(const std::uint8_t* key, int bits,
                                  const std::uint8_t* templ = testset::kKeyTemplate) {
  KeyMaterial km;
  std::memcpy(km.data(), templ, km.size());
  const std::vector<std::uint8_t> w = ExpandKey(key, bits);
  for (int b = 0; b <= RoundsForBits(bits); ++b) PutRoundKey(km, b, &w[16 * b]);
  return km;
}

// Deciphering key material (equivalent inverse cipher): slot 0 the last round
// key, slots 1..R-1 InvMixColumns of round keys R-1..1, slot R the first.
inline KeyMaterial DecKeyMaterial(const std::uint8_t* key, int bits,
                                  const std::uint8_t* templ = testset::kKeyTemplate) {
  KeyMaterial km;
  std::memcpy(km.data(), templ, km.size());
  const std::vector<std::uint8_t> w = ExpandKey(key, bits);
  const int rounds = RoundsForBits(bits);
  for (int b = 0; b <= rounds; ++b) {
    std::uint8_t rk[16];
    std::memcpy(rk, &w[16 * (rounds - b)], 16);
    if (b != 0 && b != rounds) InvMixColumnsInPlace(rk);
    PutRoundKey(km, b, rk);
  }
  return km;
}

// AES in ECB or CBC mode through OpenSSL's EVP interface, without padding
// (`pkcs7` turns OpenSSL's PKCS#7 padding on). Throws on any OpenSSL failure.
inline std::vector<std::uint8_t> OpenSslAes(bool encrypt, bool cbc, bool pkcs7,
                                            const std::uint8_t* key, int bits,
                                            const std::uint8_t* iv,
                                            const std::vector<std::uint8_t>& in) {
  const EVP_CIPHER* cipher = nullptr;
  switch (bits) {
    case 128: cipher = cbc ? EVP_aes_128_cbc() : EVP_aes_128_ecb(); break;
    case 192: cipher = cbc ? EVP_aes_192_cbc() : EVP_aes_192_ecb(); break;
    case 256: cipher = cbc ? EVP_aes_256_cbc() : EVP_aes_256_ecb(); break;
    default: throw std::invalid_argument("key size");
  }
  std::unique_ptr<EVP_CIPHER_CTX, decltype(&EVP_CIPHER_CTX_free)> ctx(EVP_CIPHER_CTX_new(),
                                                                      &EVP_CIPHER_CTX_free);
  if (!ctx ||
      EVP_CipherInit_ex(ctx.get(), cipher, nullptr, key, cbc ? iv : nullptr, encrypt ? 1 : 0) !=
          1 ||
      EVP_CIPHER_CTX_set_padding(ctx.get(), pkcs7 ? 1 : 0) != 1) {
    throw std::runtime_error("EVP_CipherInit_ex");
  }
  std::vector<std::uint8_t> out(in.size() + 32);
  int n1 = 0;
  int n2 = 0;
  if (EVP_CipherUpdate(ctx.get(), out.data(), &n1, in.data(), static_cast<int>(in.size())) != 1 ||
      EVP_CipherFinal_ex(ctx.get(), out.data() + n1, &n2) != 1) {
    throw std::runtime_error("EVP_Cipher");
  }
  out.resize(static_cast<std::size_t>(n1 + n2));
  return out;
}

}  // namespace testsupport
}  // namespace wbaes
}  // namespace OxConfigMgr

#endif  // OXCFG_TESTS_SECURITY_WBAES_TEST_SUPPORT_H
