// Test-only helpers for the white-box cipher: the test table set (identity
// external encodings, so its blocks are plain AES), key material for it built
// from any AES key by a key schedule written independently of the generator's,
// one dispatcher over the eight mode functions, and OpenSSL as the yardstick.
#ifndef OXCFG_TESTS_SECURITY_WBAES_TEST_SUPPORT_H
#define OXCFG_TESTS_SECURITY_WBAES_TEST_SUPPORT_H

#include <oxconfigmgr/OxWbAes.h>

#include "security/wbaes_internal.h"

#include <array>
#include <cstdint>
#include <cstring>
#include <memory>
#include <random>
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

using Bytes = std::vector<std::uint8_t>;
using KeyMaterial = std::array<std::uint8_t, kKeyMaterialSize>;

inline Bytes Random(std::mt19937& rng, std::size_t n) {
  Bytes b(n);
  for (auto& x : b) x = static_cast<std::uint8_t>(rng());
  return b;
}

inline std::uint8_t GfMul(std::uint8_t a, std::uint8_t b) {
  std::uint8_t p = 0;
  for (; b != 0; b >>= 1, a = static_cast<std::uint8_t>((a << 1) ^ ((a & 0x80) ? 0x1b : 0))) {
    if (b & 1) p ^= a;
  }
  return p;
}

// The AES S-box (index 0..255) and its inverse (256..511), computed as x^254
// followed by the affine map rather than typed in.
inline const std::array<std::uint8_t, 512>& SBoxes() {
  static const std::array<std::uint8_t, 512> box = [] {
    std::array<std::uint8_t, 512> s{};
    for (unsigned x = 0; x < 256; ++x) {
      std::uint8_t v = x != 0 ? 1 : 0;
      for (int i = 0; x != 0 && i < 254; ++i) v = GfMul(v, static_cast<std::uint8_t>(x));
      std::uint8_t out = 0x63 ^ v;
      for (int i = 1; i <= 4; ++i) out ^= static_cast<std::uint8_t>((v << i) | (v >> (8 - i)));
      s[x] = out;
    }
    for (unsigned x = 0; x < 256; ++x) s[256 + s[x]] = static_cast<std::uint8_t>(x);
    return s;
  }();
  return box;
}

// Key material for `key` (128, 192 or 256 bits) under the template's mask:
// round keys column by column in slots 0..R when enciphering; for the
// equivalent inverse cipher, slot b holds round key R - b, passed through
// InvMixColumns for 0 < b < R.
inline KeyMaterial MakeKeyMaterial(bool decipher, const std::uint8_t* key, int bits,
                                   const std::uint8_t* templ = testset::kKeyTemplate) {
  const int nk = bits / 32, rounds = nk + 6, words = 4 * (rounds + 1);
  Bytes w(4 * static_cast<std::size_t>(words));
  std::memcpy(w.data(), key, 4 * static_cast<std::size_t>(nk));
  std::uint8_t rcon = 1;
  for (int i = nk; i < words; ++i) {
    std::uint8_t t[4];
    std::memcpy(t, &w[4 * (i - 1)], 4);
    if (i % nk == 0) {
      const std::uint8_t first = t[0];
      for (int j = 0; j < 3; ++j) t[j] = SBoxes()[t[j + 1]];
      t[3] = SBoxes()[first];
      t[0] ^= rcon;
      rcon = GfMul(rcon, 2);
    } else if (nk == 8 && i % nk == 4) {
      for (auto& b : t) b = SBoxes()[b];
    }
    for (int j = 0; j < 4; ++j) w[4 * i + j] = w[4 * (i - nk) + j] ^ t[j];
  }
  KeyMaterial km;
  std::memcpy(km.data(), templ, km.size());
  for (int b = 0; b <= rounds; ++b) {
    std::uint8_t rk[16];
    std::memcpy(rk, &w[16 * (decipher ? rounds - b : b)], 16);
    for (int c = 0; decipher && b != 0 && b != rounds && c < 4; ++c) {
      const std::uint8_t a[4] = {rk[4 * c], rk[4 * c + 1], rk[4 * c + 2], rk[4 * c + 3]};
      for (int r = 0; r < 4; ++r) {
        rk[4 * c + r] = GfMul(a[r], 14) ^ GfMul(a[(r + 1) % 4], 11) ^ GfMul(a[(r + 2) % 4], 13) ^
                        GfMul(a[(r + 3) % 4], 9);
      }
    }
    for (int j = 0; j < 16; ++j) {
      const int i = 4 + 16 * b + j;
      km[i] = static_cast<std::uint8_t>(rk[j] ^ km[i % 3]);
    }
  }
  return km;
}

// The eight mode functions behind one signature (ECB ignores the IV): on the
// given table set, or through the exported functions when `tables` is null.
struct Mode {
  const char* name;
  bool cbc;
  bool pkcs7;
};
constexpr Mode kModes[] = {{"ecb", false, false},
                           {"cbc", true, false},
                           {"ecb_pkcs7", false, true},
                           {"cbc_pkcs7", true, true}};

inline int RunMode(const WbAesTables* t, const Mode& m, bool decipher, const std::uint8_t* in,
                   int n, std::uint8_t* out, int* outLen, int bits, const std::uint8_t* key,
                   const std::uint8_t* iv) {
  switch ((t != nullptr) * 8 + m.cbc * 4 + m.pkcs7 * 2 + decipher) {
    case 0: return nyxwbaes_dynamic_ecb_encrypt(in, n, out, outLen, bits, key);
    case 1: return nyxwbaes_dynamic_ecb_decrypt(in, n, out, outLen, bits, key);
    case 2: return nyxwbaes_dynamic_ecb_encrypt_pkcs7(in, n, out, outLen, bits, key);
    case 3: return nyxwbaes_dynamic_ecb_decrypt_pkcs7(in, n, out, outLen, bits, key);
    case 4: return nyxwbaes_dynamic_cbc_encrypt(in, n, out, outLen, bits, key, iv);
    case 5: return nyxwbaes_dynamic_cbc_decrypt(in, n, out, outLen, bits, key, iv);
    case 6: return nyxwbaes_dynamic_cbc_encrypt_pkcs7(in, n, out, outLen, bits, key, iv);
    case 7: return nyxwbaes_dynamic_cbc_decrypt_pkcs7(in, n, out, outLen, bits, key, iv);
    case 8: return EcbEncrypt(*t, in, n, out, outLen, bits, key);
    case 9: return EcbDecrypt(*t, in, n, out, outLen, bits, key);
    case 10: return EcbEncryptPkcs7(*t, in, n, out, outLen, bits, key);
    case 11: return EcbDecryptPkcs7(*t, in, n, out, outLen, bits, key);
    case 12: return CbcEncrypt(*t, in, n, out, outLen, bits, key, iv);
    case 13: return CbcDecrypt(*t, in, n, out, outLen, bits, key, iv);
    case 14: return CbcEncryptPkcs7(*t, in, n, out, outLen, bits, key, iv);
    default: return CbcDecryptPkcs7(*t, in, n, out, outLen, bits, key, iv);
  }
}

// AES-ECB or AES-CBC through OpenSSL's EVP interface, PKCS#7 padding only
// when `pkcs7`. Throws on any OpenSSL failure.
inline Bytes OpenSslAes(bool encrypt, bool cbc, bool pkcs7, const std::uint8_t* key, int bits,
                        const std::uint8_t* iv, const Bytes& in) {
  const EVP_CIPHER* const ciphers[2][3] = {
      {EVP_aes_128_ecb(), EVP_aes_192_ecb(), EVP_aes_256_ecb()},
      {EVP_aes_128_cbc(), EVP_aes_192_cbc(), EVP_aes_256_cbc()}};
  std::unique_ptr<EVP_CIPHER_CTX, decltype(&EVP_CIPHER_CTX_free)> ctx(EVP_CIPHER_CTX_new(),
                                                                      &EVP_CIPHER_CTX_free);
  Bytes out(in.size() + 32);
  int n1 = 0, n2 = 0;
  if (!ctx || (bits != 128 && bits != 192 && bits != 256) ||
      EVP_CipherInit_ex(ctx.get(), ciphers[cbc][(bits - 128) / 64], nullptr, key,
                        cbc ? iv : nullptr, encrypt ? 1 : 0) != 1 ||
      EVP_CIPHER_CTX_set_padding(ctx.get(), pkcs7 ? 1 : 0) != 1 ||
      EVP_CipherUpdate(ctx.get(), out.data(), &n1, in.data(), static_cast<int>(in.size())) != 1 ||
      EVP_CipherFinal_ex(ctx.get(), out.data() + n1, &n2) != 1) {
    throw std::runtime_error("OpenSSL AES");
  }
  out.resize(static_cast<std::size_t>(n1 + n2));
  return out;
}

}  // namespace testsupport
}  // namespace wbaes
}  // namespace OxConfigMgr

#endif  // OXCFG_TESTS_SECURITY_WBAES_TEST_SUPPORT_H
