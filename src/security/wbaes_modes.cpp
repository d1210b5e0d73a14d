// ECB and CBC modes of the white-box cipher, with zero or PKCS#7 padding, on
// a chosen table set; the exported nyxwbaes_dynamic_* functions bind them to
// the production set.
//
// Invariants kept by every mode: arguments are checked completely before the
// output length or any output byte is written; the output length is stored
// before the first block is processed; the round keys are unmasked once per
// call into a stack area that is wiped before returning; the caller's IV is
// only read.
#include <oxconfigmgr/OxWbAes.h>

#include "platform/secure_wipe.h"
#include "security/wbaes_block.h"
#include "security/wbaes_internal.h"

#include <cstdint>
#include <cstring>

namespace OxConfigMgr {
namespace wbaes {
namespace {

// Blocks handed to the engine at a time when deciphering CBC in place: a
// full batch of the vector engine, and a ciphertext copy (needed for the
// chaining) that stays a small stack buffer.
constexpr std::size_t kCbcBatch = 64;

int RoundsForKeyBits(int keyBits) {
  switch (keyBits) {
    case 128: return 10;
    case 192: return 12;
    case 256: return 14;
    default: return 0;
  }
}

// Key material unmasked and bound to one direction's tables for one call.
class CallKey {
 public:
  CallKey(const WbAesDirTables& tables, const std::uint8_t* keyMaterial, int rounds) {
    std::uint8_t roundKeys[kRoundKeyAreaSize];
    init_key(keyMaterial, rounds, roundKeys);
    PrepareKey(tables, roundKeys, rounds, &key_);
    OxBase::SecureWipe(roundKeys, sizeof roundKeys);
  }
  ~CallKey() { WipePreparedKey(&key_); }
  CallKey(const CallKey&) = delete;
  CallKey& operator=(const CallKey&) = delete;

  const PreparedKey& get() const { return key_; }

 private:
  PreparedKey key_;
};

inline void XorBlock(std::uint8_t* dst, const std::uint8_t* a, const std::uint8_t* b) {
  for (std::size_t i = 0; i < kBlockSize; ++i) dst[i] = static_cast<std::uint8_t>(a[i] ^ b[i]);
}

enum class Padding { kZero, kPkcs7 };

// Checks an enciphering call and computes its output length. Returns kOk or
// the error code, in the documented order: pointers, key size, capacity.
int CheckEncrypt(const std::uint8_t* in, int inLen, const std::uint8_t* out, const int* outLen,
                 int keyBits, const std::uint8_t* key, bool needIv, const std::uint8_t* iv,
                 Padding padding, int* rounds, int* written) {
  if (in == nullptr || out == nullptr || outLen == nullptr || key == nullptr ||
      (needIv && iv == nullptr)) {
    return kErrNullPointer;
  }
  *rounds = RoundsForKeyBits(keyBits);
  if (*rounds == 0) return kErrKeySize;
  if (inLen < 0) return kErrCapacity;
  const std::int64_t len = inLen;
  const std::int64_t need = padding == Padding::kZero ? (len + 15) / 16 * 16 : (len / 16 + 1) * 16;
  if (need > *outLen) return kErrCapacity;  // *outLen <= INT32_MAX, so need fits in int
  *written = static_cast<int>(need);
  return kOk;
}

// Pointers, length, capacity, key size.
int CheckDecrypt(const std::uint8_t* in, int inLen, const std::uint8_t* out, const int* outLen,
                 int keyBits, const std::uint8_t* key, bool needIv, const std::uint8_t* iv,
                 int* rounds) {
  if (in == nullptr || out == nullptr || outLen == nullptr || key == nullptr ||
      (needIv && iv == nullptr)) {
    return kErrNullPointer;
  }
  if (inLen < 0 || inLen % 16 != 0) return kErrLength;
  if (*outLen < inLen) return kErrCapacity;
  *rounds = RoundsForKeyBits(keyBits);
  if (*rounds == 0) return kErrKeySize;
  return kOk;
}

// The final block of an enciphering call: the input's tail followed by zero
// bytes (zero padding) or by pad bytes equal to their count (PKCS#7).
// Returns false when there is no final block to add.
bool FinalBlock(const std::uint8_t* in, int inLen, Padding padding, std::uint8_t* block) {
  const std::size_t full = static_cast<std::size_t>(inLen) / 16 * 16;
  const std::size_t tail = static_cast<std::size_t>(inLen) - full;
  if (padding == Padding::kZero && tail == 0) return false;
  const std::uint8_t pad = padding == Padding::kZero ? 0 : static_cast<std::uint8_t>(16 - tail);
  std::memset(block, pad, kBlockSize);
  std::memcpy(block, in + full, tail);
  return true;
}

int Ecb(const WbAesTables& t, const std::uint8_t* in, int inLen, std::uint8_t* out, int* outLen,
        int keyBits, const std::uint8_t* key, Padding padding) {
  int rounds = 0;
  int written = 0;
  const int rc = CheckEncrypt(in, inLen, out, outLen, keyBits, key, false, nullptr, padding,
                              &rounds, &written);
  if (rc != kOk) return rc;
  *outLen = written;
  const CallKey ck(t.enc, key, rounds);
  // The final block is built before the full blocks are written: with
  // in == out the tail's input bytes are still intact.
  std::uint8_t last[kBlockSize];
  const bool hasLast = FinalBlock(in, inLen, padding, last);
  const std::size_t full = static_cast<std::size_t>(inLen) / 16;
  ProcessBlocks(t.enc, false, ck.get(), in, out, full);
  if (hasLast) ProcessBlocks(t.enc, false, ck.get(), last, out + 16 * full, 1);
  OxBase::SecureWipe(last, sizeof last);
  return kOk;
}

int Cbc(const WbAesTables& t, const std::uint8_t* in, int inLen, std::uint8_t* out, int* outLen,
        int keyBits, const std::uint8_t* key, const std::uint8_t* iv, Padding padding) {
  int rounds = 0;
  int written = 0;
  const int rc =
      CheckEncrypt(in, inLen, out, outLen, keyBits, key, true, iv, padding, &rounds, &written);
  if (rc != kOk) return rc;
  *outLen = written;
  const CallKey ck(t.enc, key, rounds);
  std::uint8_t last[kBlockSize];
  const bool hasLast = FinalBlock(in, inLen, padding, last);
  const std::size_t full = static_cast<std::size_t>(inLen) / 16;
  EncipherChain(t.enc, ck.get(), iv, in, out, full);
  if (hasLast) EncipherChain(t.enc, ck.get(), full > 0 ? out + 16 * (full - 1) : iv, last, out + 16 * full, 1);
  OxBase::SecureWipe(last, sizeof last);
  return kOk;
}

int EcbDec(const WbAesTables& t, const std::uint8_t* in, int inLen, std::uint8_t* out, int* outLen,
           int keyBits, const std::uint8_t* key) {
  int rounds = 0;
  const int rc = CheckDecrypt(in, inLen, out, outLen, keyBits, key, false, nullptr, &rounds);
  if (rc != kOk) return rc;
  *outLen = inLen;
  const CallKey ck(t.dec, key, rounds);
  ProcessBlocks(t.dec, true, ck.get(), in, out, static_cast<std::size_t>(inLen) / 16);
  return kOk;
}

int CbcDec(const WbAesTables& t, const std::uint8_t* in, int inLen, std::uint8_t* out, int* outLen,
           int keyBits, const std::uint8_t* key, const std::uint8_t* iv) {
  int rounds = 0;
  const int rc = CheckDecrypt(in, inLen, out, outLen, keyBits, key, true, iv, &rounds);
  if (rc != kOk) return rc;
  *outLen = inLen;
  const std::size_t blocks = static_cast<std::size_t>(inLen) / 16;
  const CallKey ck(t.dec, key, rounds);
  if (in != out) {
    // The ciphertext stays readable in `in`: decipher everything at once,
    // then chain.
    ProcessBlocks(t.dec, true, ck.get(), in, out, blocks);
    if (blocks > 0) XorBlock(out, out, iv);
    for (std::size_t b = 1; b < blocks; ++b)
      XorBlock(out + 16 * b, out + 16 * b, in + 16 * (b - 1));
    return kOk;
  }
  // In place: each batch's ciphertext is copied first, as the output
  // overwrites the chaining blocks.
  std::uint8_t chain[kBlockSize];
  std::memcpy(chain, iv, kBlockSize);
  std::uint8_t cipher[kCbcBatch * kBlockSize];
  std::size_t remaining = blocks;
  while (remaining > 0) {
    const std::size_t n = remaining < kCbcBatch ? remaining : kCbcBatch;
    std::memcpy(cipher, in, n * kBlockSize);
    ProcessBlocks(t.dec, true, ck.get(), cipher, out, n);
    XorBlock(out, out, chain);
    for (std::size_t b = 1; b < n; ++b) XorBlock(out + 16 * b, out + 16 * b, cipher + 16 * (b - 1));
    std::memcpy(chain, cipher + 16 * (n - 1), kBlockSize);
    in += n * kBlockSize;
    out += n * kBlockSize;
    remaining -= n;
  }
  return kOk;
}

// PKCS#7 length trimming, deliberately trusting the last byte.
void TrimPkcs7(const std::uint8_t* out, int* outLen) {
  if (*outLen > 0) *outLen -= out[*outLen - 1];
}

}  // namespace

int EcbEncrypt(const WbAesTables& t, const std::uint8_t* in, int inLen, std::uint8_t* out,
               int* outLen, int keyBits, const std::uint8_t* key) {
  return Ecb(t, in, inLen, out, outLen, keyBits, key, Padding::kZero);
}

int EcbEncryptPkcs7(const WbAesTables& t, const std::uint8_t* in, int inLen, std::uint8_t* out,
                    int* outLen, int keyBits, const std::uint8_t* key) {
  return Ecb(t, in, inLen, out, outLen, keyBits, key, Padding::kPkcs7);
}

int CbcEncrypt(const WbAesTables& t, const std::uint8_t* in, int inLen, std::uint8_t* out,
               int* outLen, int keyBits, const std::uint8_t* key, const std::uint8_t* iv) {
  return Cbc(t, in, inLen, out, outLen, keyBits, key, iv, Padding::kZero);
}

int CbcEncryptPkcs7(const WbAesTables& t, const std::uint8_t* in, int inLen, std::uint8_t* out,
                    int* outLen, int keyBits, const std::uint8_t* key, const std::uint8_t* iv) {
  return Cbc(t, in, inLen, out, outLen, keyBits, key, iv, Padding::kPkcs7);
}

int EcbDecrypt(const WbAesTables& t, const std::uint8_t* in, int inLen, std::uint8_t* out,
               int* outLen, int keyBits, const std::uint8_t* key) {
  return EcbDec(t, in, inLen, out, outLen, keyBits, key);
}

int CbcDecrypt(const WbAesTables& t, const std::uint8_t* in, int inLen, std::uint8_t* out,
               int* outLen, int keyBits, const std::uint8_t* key, const std::uint8_t* iv) {
  return CbcDec(t, in, inLen, out, outLen, keyBits, key, iv);
}

int EcbDecryptPkcs7(const WbAesTables& t, const std::uint8_t* in, int inLen, std::uint8_t* out,
                    int* outLen, int keyBits, const std::uint8_t* key) {
  const int rc = EcbDec(t, in, inLen, out, outLen, keyBits, key);
  if (rc == kOk) TrimPkcs7(out, outLen);
  return rc;
}

int CbcDecryptPkcs7(const WbAesTables& t, const std::uint8_t* in, int inLen, std::uint8_t* out,
                    int* outLen, int keyBits, const std::uint8_t* key, const std::uint8_t* iv) {
  const int rc = CbcDec(t, in, inLen, out, outLen, keyBits, key, iv);
  if (rc == kOk) TrimPkcs7(out, outLen);
  return rc;
}

}  // namespace wbaes
}  // namespace OxConfigMgr

using namespace OxConfigMgr::wbaes;

extern "C" {

int nyxwbaes_dynamic_ecb_encrypt(const unsigned char* in, int inLen, unsigned char* out,
                                 int* outLen, int keyBits, const unsigned char* key) {
  return EcbEncrypt(kProductionTables, in, inLen, out, outLen, keyBits, key);
}

int nyxwbaes_dynamic_ecb_decrypt(const unsigned char* in, int inLen, unsigned char* out,
                                 int* outLen, int keyBits, const unsigned char* key) {
  return EcbDecrypt(kProductionTables, in, inLen, out, outLen, keyBits, key);
}

int nyxwbaes_dynamic_cbc_encrypt(const unsigned char* in, int inLen, unsigned char* out,
                                 int* outLen, int keyBits, const unsigned char* key,
                                 const unsigned char* iv) {
  return CbcEncrypt(kProductionTables, in, inLen, out, outLen, keyBits, key, iv);
}

int nyxwbaes_dynamic_cbc_decrypt(const unsigned char* in, int inLen, unsigned char* out,
                                 int* outLen, int keyBits, const unsigned char* key,
                                 const unsigned char* iv) {
  return CbcDecrypt(kProductionTables, in, inLen, out, outLen, keyBits, key, iv);
}

int nyxwbaes_dynamic_ecb_encrypt_pkcs7(const unsigned char* in, int inLen, unsigned char* out,
                                       int* outLen, int keyBits, const unsigned char* key) {
  return EcbEncryptPkcs7(kProductionTables, in, inLen, out, outLen, keyBits, key);
}

int nyxwbaes_dynamic_cbc_encrypt_pkcs7(const unsigned char* in, int inLen, unsigned char* out,
                                       int* outLen, int keyBits, const unsigned char* key,
                                       const unsigned char* iv) {
  return CbcEncryptPkcs7(kProductionTables, in, inLen, out, outLen, keyBits, key, iv);
}

int nyxwbaes_dynamic_ecb_decrypt_pkcs7(const unsigned char* in, int inLen, unsigned char* out,
                                       int* outLen, int keyBits, const unsigned char* key) {
  return EcbDecryptPkcs7(kProductionTables, in, inLen, out, outLen, keyBits, key);
}

int nyxwbaes_dynamic_cbc_decrypt_pkcs7(const unsigned char* in, int inLen, unsigned char* out,
                                       int* outLen, int keyBits, const unsigned char* key,
                                       const unsigned char* iv) {
  return CbcDecryptPkcs7(kProductionTables, in, inLen, out, outLen, keyBits, key, iv);
}

}  // extern "C"
