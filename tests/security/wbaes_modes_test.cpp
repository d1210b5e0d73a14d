// The exported nyxwbaes_dynamic_* functions: result codes and the order of
// the checks, output lengths, padding, in-place rules, and round trips on the
// production tables.
#include <oxconfigmgr/OxWbAes.h>

#include "security/wbaes_internal.h"
#include "security/wbaes_test_support.h"

#include <gtest/gtest.h>

#include <cstring>
#include <functional>
#include <random>
#include <string>
#include <thread>
#include <vector>

namespace OxConfigMgr {
namespace wbaes {
namespace {

using Bytes = std::vector<std::uint8_t>;

const std::uint8_t kIv[16] = {0xA0, 0xA1, 0xA2, 0xA3, 0xA4, 0xA5, 0xA6, 0xA7,
                              0xA8, 0xA9, 0xAA, 0xAB, 0xAC, 0xAD, 0xAE, 0xAF};

Bytes Random(std::mt19937& rng, std::size_t n) {
  Bytes b(n);
  for (auto& x : b) x = static_cast<std::uint8_t>(rng());
  return b;
}

// One signature for all eight functions: ECB ones ignore the IV.
using Fn = std::function<int(const std::uint8_t*, int, std::uint8_t*, int*, int,
                             const std::uint8_t*, const std::uint8_t*)>;

struct Mode {
  const char* name;
  Fn encrypt;
  Fn decrypt;
  bool cbc;
  bool pkcs7;
};

std::vector<Mode> Modes() {
  return {
      {"ecb",
       [](auto in, int n, auto out, int* o, int bits, auto key, auto) {
         return nyxwbaes_dynamic_ecb_encrypt(in, n, out, o, bits, key);
       },
       [](auto in, int n, auto out, int* o, int bits, auto key, auto) {
         return nyxwbaes_dynamic_ecb_decrypt(in, n, out, o, bits, key);
       },
       false, false},
      {"cbc", nyxwbaes_dynamic_cbc_encrypt, nyxwbaes_dynamic_cbc_decrypt, true, false},
      {"ecb_pkcs7",
       [](auto in, int n, auto out, int* o, int bits, auto key, auto) {
         return nyxwbaes_dynamic_ecb_encrypt_pkcs7(in, n, out, o, bits, key);
       },
       [](auto in, int n, auto out, int* o, int bits, auto key, auto) {
         return nyxwbaes_dynamic_ecb_decrypt_pkcs7(in, n, out, o, bits, key);
       },
       false, true},
      {"cbc_pkcs7", nyxwbaes_dynamic_cbc_encrypt_pkcs7, nyxwbaes_dynamic_cbc_decrypt_pkcs7, true,
       true},
  };
}

int ExpectedLength(const Mode& m, int len) {
  return m.pkcs7 ? (len / 16 + 1) * 16 : (len + 15) / 16 * 16;
}

TEST(WbAesModes, ProductionRoundTripEveryModeAndLength) {
  std::mt19937 rng(99);
  for (const Mode& m : Modes()) {
    for (int len : {0, 1, 15, 16, 17, 4096}) {
      SCOPED_TRACE(std::string(m.name) + " length " + std::to_string(len));
      const Bytes plain = Random(rng, static_cast<std::size_t>(len) + 1);  // never empty storage
      Bytes cipher(static_cast<std::size_t>(len) + 32, 0xEE);
      int cLen = static_cast<int>(cipher.size());
      ASSERT_EQ(0, m.encrypt(plain.data(), len, cipher.data(), &cLen, 256, kProductionKeyEnc, kIv));
      ASSERT_EQ(ExpectedLength(m, len), cLen);
      EXPECT_EQ(0xEE, cipher[static_cast<std::size_t>(cLen)]) << "wrote past the output length";

      Bytes back(static_cast<std::size_t>(cLen) + 1, 0xEE);
      int bLen = static_cast<int>(back.size());
      ASSERT_EQ(0, m.decrypt(cipher.data(), cLen, back.data(), &bLen, 256, kProductionKeyDec, kIv));
      if (m.pkcs7) {
        ASSERT_EQ(len, bLen);
      } else {
        ASSERT_EQ(cLen, bLen);
        // Zero padding comes back as zero bytes.
        for (int i = len; i < cLen; ++i) EXPECT_EQ(0, back[static_cast<std::size_t>(i)]);
      }
      EXPECT_EQ(0, std::memcmp(plain.data(), back.data(), static_cast<std::size_t>(len)));
    }
  }
}

// The tables are key-independent: key material for any key under the
// production set's mask round-trips too, for every key size.
TEST(WbAesModes, ProductionTablesServeAnyKeyMaterial) {
  std::mt19937 rng(7);
  for (int bits : {128, 192, 256}) {
    const Bytes key = Random(rng, static_cast<std::size_t>(bits / 8));
    const auto enc = testsupport::EncKeyMaterial(key.data(), bits, kProductionKeyEnc);
    const auto dec = testsupport::DecKeyMaterial(key.data(), bits, kProductionKeyDec);
    const Bytes plain = Random(rng, 160);
    Bytes cipher(160);
    Bytes back(160);
    int n = 160;
    ASSERT_EQ(0, nyxwbaes_dynamic_cbc_encrypt(plain.data(), 160, cipher.data(), &n, bits,
                                              enc.data(), kIv));
    ASSERT_EQ(0, nyxwbaes_dynamic_cbc_decrypt(cipher.data(), 160, back.data(), &n, bits, dec.data(),
                                              kIv));
    EXPECT_EQ(plain, back) << bits;
    EXPECT_NE(plain, cipher);
  }
}

TEST(WbAesModes, InPlaceEqualsOutOfPlaceAndIvIsOnlyRead) {
  std::mt19937 rng(11);
  for (const Mode& m : Modes()) {
    SCOPED_TRACE(m.name);
    // Not a multiple of 16, and long enough for several internal batches.
    const Bytes plain = Random(rng, 3000);
    std::uint8_t iv[16];
    std::memcpy(iv, kIv, 16);

    Bytes separate(3008);
    int n = 3008;
    ASSERT_EQ(0, m.encrypt(plain.data(), 3000, separate.data(), &n, 256, kProductionKeyEnc, iv));
    Bytes inplace = plain;
    inplace.resize(3008);
    int n2 = 3008;
    ASSERT_EQ(0, m.encrypt(inplace.data(), 3000, inplace.data(), &n2, 256, kProductionKeyEnc, iv));
    EXPECT_EQ(separate, inplace);

    Bytes back(3008);
    int b1 = 3008;
    ASSERT_EQ(0, m.decrypt(separate.data(), 3008, back.data(), &b1, 256, kProductionKeyDec, iv));
    int b2 = 3008;
    ASSERT_EQ(0, m.decrypt(inplace.data(), 3008, inplace.data(), &b2, 256, kProductionKeyDec, iv));
    EXPECT_EQ(b1, b2);
    EXPECT_EQ(back, inplace);
    EXPECT_EQ(0, std::memcmp(iv, kIv, 16)) << "the caller's IV changed";
  }
}

TEST(WbAesModes, CbcChainsBlocksAndEcbDoesNot) {
  Bytes plain(64, 0x5A);  // four equal blocks
  Bytes ecb(64), cbc(64);
  int n = 64;
  ASSERT_EQ(0,
            nyxwbaes_dynamic_ecb_encrypt(plain.data(), 64, ecb.data(), &n, 256, kProductionKeyEnc));
  ASSERT_EQ(0, nyxwbaes_dynamic_cbc_encrypt(plain.data(), 64, cbc.data(), &n, 256,
                                            kProductionKeyEnc, kIv));
  EXPECT_EQ(0, std::memcmp(ecb.data(), ecb.data() + 48, 16));
  EXPECT_NE(0, std::memcmp(cbc.data(), cbc.data() + 48, 16));
  // A different IV changes every block.
  std::uint8_t iv2[16];
  std::memcpy(iv2, kIv, 16);
  iv2[15] ^= 1;
  Bytes cbc2(64);
  ASSERT_EQ(0, nyxwbaes_dynamic_cbc_encrypt(plain.data(), 64, cbc2.data(), &n, 256,
                                            kProductionKeyEnc, iv2));
  for (int b = 0; b < 4; ++b)
    EXPECT_NE(0, std::memcmp(cbc.data() + 16 * b, cbc2.data() + 16 * b, 16));
}

TEST(WbAesModes, PartialFinalBlockIsZeroPadded) {
  Bytes plain(20, 0x33);
  Bytes padded(32, 0);
  std::memcpy(padded.data(), plain.data(), 20);
  for (const Mode& m : Modes()) {
    if (m.pkcs7) continue;
    Bytes a(32), b(32);
    int n = 32;
    ASSERT_EQ(0, m.encrypt(plain.data(), 20, a.data(), &n, 256, kProductionKeyEnc, kIv));
    ASSERT_EQ(32, n);
    ASSERT_EQ(0, m.encrypt(padded.data(), 32, b.data(), &n, 256, kProductionKeyEnc, kIv));
    EXPECT_EQ(a, b) << m.name;
  }
}

TEST(WbAesModes, Pkcs7AddsAWholeBlockToAFullLastBlock) {
  const Bytes plain(16, 0x42);
  Bytes cipher(32);
  int n = 32;
  ASSERT_EQ(0, nyxwbaes_dynamic_ecb_encrypt_pkcs7(plain.data(), 16, cipher.data(), &n, 256,
                                                  kProductionKeyEnc));
  ASSERT_EQ(32, n);
  // Deciphering without trimming shows the pad block: sixteen 16s.
  Bytes back(32);
  int b = 32;
  ASSERT_EQ(
      0, nyxwbaes_dynamic_ecb_decrypt(cipher.data(), 32, back.data(), &b, 256, kProductionKeyDec));
  for (int i = 16; i < 32; ++i) EXPECT_EQ(16, back[static_cast<std::size_t>(i)]);

  // An empty input still produces one pad block.
  n = 16;
  ASSERT_EQ(0, nyxwbaes_dynamic_cbc_encrypt_pkcs7(plain.data(), 0, cipher.data(), &n, 256,
                                                  kProductionKeyEnc, kIv));
  EXPECT_EQ(16, n);
  b = 16;
  ASSERT_EQ(0, nyxwbaes_dynamic_cbc_decrypt(cipher.data(), 16, back.data(), &b, 256,
                                            kProductionKeyDec, kIv));
  for (int i = 0; i < 16; ++i) EXPECT_EQ(16, back[static_cast<std::size_t>(i)]);
}

// A ciphertext whose last deciphered byte is `last`.
Bytes CipherEndingWith(std::uint8_t last, std::size_t len) {
  Bytes plain(len, 0x61);
  plain.back() = last;
  Bytes cipher(len);
  int n = static_cast<int>(len);
  EXPECT_EQ(
      0, nyxwbaes_dynamic_ecb_encrypt(plain.data(), n, cipher.data(), &n, 256, kProductionKeyEnc));
  return cipher;
}

TEST(WbAesModes, Pkcs7DecipheringTrustsTheLastByte) {
  Bytes out(48);
  int n = 48;
  // 0 leaves the length unchanged.
  Bytes c = CipherEndingWith(0, 32);
  ASSERT_EQ(
      0, nyxwbaes_dynamic_ecb_decrypt_pkcs7(c.data(), 32, out.data(), &n, 256, kProductionKeyDec));
  EXPECT_EQ(32, n);
  // Larger than the length: the length goes negative, unchecked.
  c = CipherEndingWith(200, 32);
  n = 48;
  ASSERT_EQ(
      0, nyxwbaes_dynamic_ecb_decrypt_pkcs7(c.data(), 32, out.data(), &n, 256, kProductionKeyDec));
  EXPECT_EQ(32 - 200, n);
  // Inconsistent pad bytes are not noticed either.
  c = CipherEndingWith(3, 16);
  n = 48;
  ASSERT_EQ(
      0, nyxwbaes_dynamic_ecb_decrypt_pkcs7(c.data(), 16, out.data(), &n, 256, kProductionKeyDec));
  EXPECT_EQ(13, n);
  // Zero length: nothing to read, length 0.
  n = 48;
  ASSERT_EQ(0, nyxwbaes_dynamic_cbc_decrypt_pkcs7(c.data(), 0, out.data(), &n, 256,
                                                  kProductionKeyDec, kIv));
  EXPECT_EQ(0, n);
}

TEST(WbAesModes, ZeroLengthWritesNothing) {
  std::uint8_t in[1] = {9};
  Bytes out(16, 0xEE);
  for (const Mode& m : Modes()) {
    if (m.pkcs7) continue;
    int n = 16;
    ASSERT_EQ(0, m.encrypt(in, 0, out.data(), &n, 256, kProductionKeyEnc, kIv));
    EXPECT_EQ(0, n);
    n = 0;
    ASSERT_EQ(0, m.decrypt(in, 0, out.data(), &n, 256, kProductionKeyDec, kIv));
    EXPECT_EQ(0, n);
    EXPECT_EQ(Bytes(16, 0xEE), out) << m.name;
  }
}

// Calls `fn` and checks the result code, and that neither the output buffer
// nor the output length was touched.
void ExpectRefused(int code, const Fn& fn, const std::uint8_t* in, int inLen, int capacity,
                   int bits, const std::uint8_t* key, const std::uint8_t* iv, bool nullOut = false,
                   bool nullLen = false) {
  Bytes out(64, 0xEE);
  int n = capacity;
  EXPECT_EQ(code,
            fn(in, inLen, nullOut ? nullptr : out.data(), nullLen ? nullptr : &n, bits, key, iv));
  EXPECT_EQ(capacity, n);
  EXPECT_EQ(Bytes(64, 0xEE), out);
}

TEST(WbAesModes, EncipheringChecksPointersThenKeySizeThenCapacity) {
  const std::uint8_t in[20] = {};
  for (const Mode& m : Modes()) {
    SCOPED_TRACE(m.name);
    const auto& f = m.encrypt;
    const std::uint8_t* k = kProductionKeyEnc;
    ExpectRefused(kErrNullPointer, f, nullptr, 20, 64, 256, k, kIv);
    ExpectRefused(kErrNullPointer, f, in, 20, 64, 256, k, kIv, true);
    ExpectRefused(kErrNullPointer, f, in, 20, 64, 256, k, kIv, false, true);
    ExpectRefused(kErrNullPointer, f, in, 20, 64, 256, nullptr, kIv);
    if (m.cbc) ExpectRefused(kErrNullPointer, f, in, 20, 64, 256, k, nullptr);
    for (int bits : {0, 64, 127, 129, 512, -256})
      ExpectRefused(kErrKeySize, f, in, 20, 64, bits, k, kIv);
    // 20 bytes need 32, padded either way.
    ExpectRefused(kErrCapacity, f, in, 20, 31, 256, k, kIv);
    ExpectRefused(kErrCapacity, f, in, -1, 64, 256, k, kIv);
    // Order: a null pointer wins over a bad key size, which wins over capacity.
    ExpectRefused(kErrNullPointer, f, in, 20, 0, 512, nullptr, kIv);
    ExpectRefused(kErrKeySize, f, in, 20, 0, 512, k, kIv);
  }
}

TEST(WbAesModes, DecipheringChecksPointersThenLengthThenCapacityThenKeySize) {
  const std::uint8_t in[32] = {};
  for (const Mode& m : Modes()) {
    SCOPED_TRACE(m.name);
    const auto& f = m.decrypt;
    const std::uint8_t* k = kProductionKeyDec;
    ExpectRefused(kErrNullPointer, f, nullptr, 32, 64, 256, k, kIv);
    ExpectRefused(kErrNullPointer, f, in, 32, 64, 256, k, kIv, true);
    ExpectRefused(kErrNullPointer, f, in, 32, 64, 256, k, kIv, false, true);
    ExpectRefused(kErrNullPointer, f, in, 32, 64, 256, nullptr, kIv);
    if (m.cbc) ExpectRefused(kErrNullPointer, f, in, 32, 64, 256, k, nullptr);
    ExpectRefused(kErrLength, f, in, 17, 64, 256, k, kIv);
    ExpectRefused(kErrLength, f, in, -16, 64, 256, k, kIv);
    ExpectRefused(kErrCapacity, f, in, 32, 31, 256, k, kIv);
    ExpectRefused(kErrKeySize, f, in, 32, 64, 512, k, kIv);
    // Order: pointers, then length (before key size), capacity before key size.
    ExpectRefused(kErrNullPointer, f, in, 17, 64, 512, k, kIv, true);
    ExpectRefused(kErrLength, f, in, 17, 0, 512, k, kIv);
    ExpectRefused(kErrCapacity, f, in, 32, 16, 512, k, kIv);
  }
}

// No shared state: concurrent callers get exactly the single-threaded result.
TEST(WbAesModes, ConcurrentCallsAreIndependent) {
  std::mt19937 rng(31);
  const Bytes plain = Random(rng, 4096);
  Bytes expect(4096);
  int n = 4096;
  ASSERT_EQ(0, nyxwbaes_dynamic_cbc_encrypt(plain.data(), 4096, expect.data(), &n, 256,
                                            kProductionKeyEnc, kIv));
  std::vector<int> failures(4, 0);
  std::vector<std::thread> threads;
  for (int t = 0; t < 4; ++t) {
    threads.emplace_back([&, t] {
      for (int i = 0; i < 20; ++i) {
        Bytes c(4096), p(4096);
        int len = 4096;
        if (nyxwbaes_dynamic_cbc_encrypt(plain.data(), 4096, c.data(), &len, 256, kProductionKeyEnc,
                                         kIv) != 0 ||
            c != expect ||
            nyxwbaes_dynamic_ecb_decrypt(c.data(), 4096, p.data(), &len, 256, kProductionKeyDec) !=
                0 ||
            nyxwbaes_dynamic_cbc_decrypt(c.data(), 4096, p.data(), &len, 256, kProductionKeyDec,
                                         kIv) != 0 ||
            p != plain) {
          ++failures[static_cast<std::size_t>(t)];
        }
      }
    });
  }
  for (auto& th : threads) th.join();
  EXPECT_EQ(std::vector<int>(4, 0), failures);
}

}  // namespace
}  // namespace wbaes
}  // namespace OxConfigMgr
