#include "platform/crypto_util.h"

#include <openssl/crypto.h>
#include <openssl/evp.h>

#include <cstring>

namespace OxBase {

bool Sha256(const void* data, size_t len, unsigned char out[kSha256Bytes]) {
  std::memset(out, 0, kSha256Bytes);
  if (!data && len > 0) return false;
  unsigned char digest[EVP_MAX_MD_SIZE];
  unsigned int digestLen = 0;
  if (EVP_Digest(data, len, digest, &digestLen, EVP_sha256(), nullptr) != 1 ||
      digestLen != kSha256Bytes) {
    return false;
  }
  std::memcpy(out, digest, kSha256Bytes);
  return true;
}

bool ConstantTimeEquals(const void* a, const void* b, size_t len) {
  if (len == 0) return true;
  if (!a || !b) return false;
  return CRYPTO_memcmp(a, b, len) == 0;
}

}  // namespace OxBase
