// The exported nyxwbaes_dynamic_* functions on the production tables: round
// trips, in-place rules, PKCS#7 trimming, result codes and the order of the
// checks.
#include <oxconfigmgr/OxWbAes.h>

#include "security/wbaes_internal.h"
#include "security/wbaes_test_support.h"

#include <gtest/gtest.h>

#include <cstring>
#include <random>
#include <string>
#include <thread>

namespace OxConfigMgr {
namespace wbaes {
namespace {

using testsupport::Bytes;
using testsupport::kModes;
using testsupport::Mode;

const std::uint8_t kIv[16] = {0xA0, 0xA1, 0xA2, 0xA3, 0xA4, 0xA5, 0xA6, 0xA7,
                              0xA8, 0xA9, 0xAA, 0xAB, 0xAC, 0xAD, 0xAE, 0xAF};

int Call(const Mode& m, bool decipher, const std::uint8_t* in, int n, std::uint8_t* out,
        int* outLen, int bits = 256, const std::uint8_t* key = nullptr,
        const std::uint8_t* iv = kIv) {
  if (key == nullptr) key = decipher ? kProductionKeyDec : kProductionKeyEnc;
  return testsupport::RunMode(nullptr, m, decipher, in, n, out, outLen, bits, key, iv);
}

// The production key, and (the tables being key-independent) random keys of
// every size under the production mask, round-trip in every mode for every
// length class; nothing is written past the output length.
TEST(WbAesModes, ProductionRoundTripEveryModeKeyAndLength) {
  std::mt19937 rng(99);
  for (int keyCase = 0; keyCase < 4; ++keyCase) {
    const int bits = keyCase == 0 ? 256 : 64 + 64 * keyCase;
    testsupport::KeyMaterial enc, dec;
    std::memcpy(enc.data(), kProductionKeyEnc, enc.size());
    std::memcpy(dec.data(), kProductionKeyDec, dec.size());
    if (keyCase != 0) {
      const Bytes key = testsupport::Random(rng, static_cast<std::size_t>(bits / 8));
      enc = testsupport::MakeKeyMaterial(false, key.data(), bits, kProductionKeyEnc);
      dec = testsupport::MakeKeyMaterial(true, key.data(), bits, kProductionKeyDec);
    }
    for (const Mode& m : kModes) {
      for (int len : {0, 1, 15, 16, 17, 4096}) {
        SCOPED_TRACE(std::string(m.name) + " key " + std::to_string(keyCase) + " length " +
                     std::to_string(len));
        const Bytes plain = testsupport::Random(rng, static_cast<std::size_t>(len) + 1);
        Bytes cipher(static_cast<std::size_t>(len) + 32, 0xEE);
        int cLen = static_cast<int>(cipher.size());
        ASSERT_EQ(0, Call(m, false, plain.data(), len, cipher.data(), &cLen, bits, enc.data()));
        ASSERT_EQ(m.pkcs7 ? (len / 16 + 1) * 16 : (len + 15) / 16 * 16, cLen);
        EXPECT_EQ(0xEE, cipher[static_cast<std::size_t>(cLen)]) << "wrote past the output length";

        Bytes back(static_cast<std::size_t>(cLen) + 1, 0xEE);
        int bLen = static_cast<int>(back.size());
        ASSERT_EQ(0, Call(m, true, cipher.data(), cLen, back.data(), &bLen, bits, dec.data()));
        ASSERT_EQ(m.pkcs7 ? len : cLen, bLen);
        EXPECT_EQ(0, std::memcmp(plain.data(), back.data(), static_cast<std::size_t>(len)));
        for (int i = len; i < bLen; ++i) EXPECT_EQ(0, back[static_cast<std::size_t>(i)]);
        if (len == 0 && !m.pkcs7) {
          EXPECT_EQ(0xEE, back[0]);
        }
      }
    }
  }
}

TEST(WbAesModes, InPlaceEqualsOutOfPlaceAndIvIsOnlyRead) {
  std::mt19937 rng(11);
  for (const Mode& m : kModes) {
    SCOPED_TRACE(m.name);
    // Not a multiple of 16, and long enough for several internal batches.
    Bytes separate(3008), inPlace = testsupport::Random(rng, 3000), back(3008);
    std::uint8_t iv[16];
    std::memcpy(iv, kIv, 16);
    int n1 = 3008, n2 = 3008;
    ASSERT_EQ(0, Call(m, false, inPlace.data(), 3000, separate.data(), &n1, 256, nullptr, iv));
    inPlace.resize(3008);
    ASSERT_EQ(0, Call(m, false, inPlace.data(), 3000, inPlace.data(), &n2, 256, nullptr, iv));
    EXPECT_EQ(separate, inPlace);
    ASSERT_EQ(0, Call(m, true, separate.data(), n1, back.data(), &n1, 256, nullptr, iv));
    ASSERT_EQ(0, Call(m, true, inPlace.data(), n2, inPlace.data(), &n2, 256, nullptr, iv));
    EXPECT_EQ(n1, n2);
    EXPECT_EQ(back, inPlace);
    EXPECT_EQ(0, std::memcmp(iv, kIv, 16)) << "the caller's IV changed";
  }
}

// Deciphering with PKCS#7 trusts the last byte: 0 keeps the length, a value
// above the length makes it negative, inconsistent pad bytes go unnoticed.
TEST(WbAesModes, Pkcs7DecipheringTrustsTheLastByte) {
  const struct {
    std::uint8_t last;
    int len;
    int expect;
  } cases[] = {{0, 32, 32}, {200, 32, 32 - 200}, {3, 16, 13}, {1, 0, 0}};
  for (const auto& c : cases) {
    Bytes plain(static_cast<std::size_t>(c.len) + 1, 0x61), cipher(plain.size()), out(48);
    plain[static_cast<std::size_t>(c.len > 0 ? c.len - 1 : 0)] = c.last;
    int n = c.len;
    ASSERT_EQ(0, Call(kModes[0], false, plain.data(), c.len, cipher.data(), &n));
    for (const Mode& m : {kModes[2], kModes[3]}) {
      n = 48;
      if (m.cbc && c.len > 0) continue;  // the ciphertext above is ECB
      ASSERT_EQ(0, Call(m, true, cipher.data(), c.len, out.data(), &n));
      EXPECT_EQ(c.expect, n) << m.name << " last byte " << int{c.last};
    }
  }
}

// Every refused call leaves the output buffer and the output length alone.
// Enciphering checks pointers, then key size, then capacity; deciphering
// checks pointers, then the length (before the key size), then capacity,
// then key size.
TEST(WbAesModes, ResultCodesAndCheckOrder) {
  enum { kNullIn = 1, kNullOut = 2, kNullLen = 4, kNullKey = 8, kNullIv = 16 };
  const struct {
    bool decipher;
    int code, inLen, capacity, bits, nulls;
  } cases[] = {
      {false, kErrNullPointer, 20, 64, 256, kNullIn},
      {false, kErrNullPointer, 20, 64, 256, kNullOut},
      {false, kErrNullPointer, 20, 64, 256, kNullLen},
      {false, kErrNullPointer, 20, 64, 256, kNullKey},
      {false, kErrNullPointer, 20, 64, 256, kNullIv},
      {false, kErrKeySize, 20, 64, 0, 0},
      {false, kErrKeySize, 20, 64, 127, 0},
      {false, kErrKeySize, 20, 64, 512, 0},
      {false, kErrKeySize, 20, 64, -256, 0},
      {false, kErrCapacity, 20, 31, 256, 0},  // 20 bytes need 32 either way
      {false, kErrCapacity, -1, 64, 256, 0},
      {false, kErrNullPointer, 20, 0, 512, kNullKey},
      {false, kErrKeySize, 20, 0, 512, 0},
      {true, kErrNullPointer, 32, 64, 256, kNullIn},
      {true, kErrNullPointer, 32, 64, 256, kNullOut},
      {true, kErrNullPointer, 32, 64, 256, kNullLen},
      {true, kErrNullPointer, 32, 64, 256, kNullKey},
      {true, kErrNullPointer, 32, 64, 256, kNullIv},
      {true, kErrLength, 17, 64, 256, 0},
      {true, kErrLength, -16, 64, 256, 0},
      {true, kErrCapacity, 32, 31, 256, 0},
      {true, kErrKeySize, 32, 64, 512, 0},
      {true, kErrNullPointer, 17, 64, 512, kNullOut},
      {true, kErrLength, 17, 0, 512, 0},
      {true, kErrCapacity, 32, 16, 512, 0},
  };
  const std::uint8_t in[32] = {};
  for (const Mode& m : kModes) {
    for (const auto& c : cases) {
      if ((c.nulls & kNullIv) && !m.cbc) continue;
      Bytes out(64, 0xEE);
      int n = c.capacity;
      const std::uint8_t* key = c.decipher ? kProductionKeyDec : kProductionKeyEnc;
      EXPECT_EQ(c.code, testsupport::RunMode(nullptr, m, c.decipher,
                                             (c.nulls & kNullIn) ? nullptr : in, c.inLen,
                                             (c.nulls & kNullOut) ? nullptr : out.data(),
                                             (c.nulls & kNullLen) ? nullptr : &n, c.bits,
                                             (c.nulls & kNullKey) ? nullptr : key,
                                             (c.nulls & kNullIv) ? nullptr : kIv))
          << m.name << (c.decipher ? " decipher" : " encipher") << " case " << &c - cases;
      EXPECT_EQ(c.capacity, n);
      EXPECT_EQ(Bytes(64, 0xEE), out);
    }
  }
}

// No shared state: concurrent callers get exactly the single-threaded result.
TEST(WbAesModes, ConcurrentCallsAreIndependent) {
  std::mt19937 rng(31);
  const Bytes plain = testsupport::Random(rng, 4096);
  Bytes expect(4096);
  int n = 4096;
  ASSERT_EQ(0, Call(kModes[1], false, plain.data(), 4096, expect.data(), &n));
  int failures[4] = {};
  std::thread threads[4];
  for (int t = 0; t < 4; ++t) {
    threads[t] = std::thread([&, t] {
      for (int i = 0; i < 20; ++i) {
        Bytes c(4096), p(4096);
        int len = 4096;
        if (Call(kModes[1], false, plain.data(), 4096, c.data(), &len) != 0 || c != expect ||
            Call(kModes[1], true, c.data(), 4096, p.data(), &len) != 0 || p != plain) {
          ++failures[t];
        }
      }
    });
  }
  for (auto& th : threads) th.join();
  for (int f : failures) EXPECT_EQ(0, f);
}

}  // namespace
}  // namespace wbaes
}  // namespace OxConfigMgr
