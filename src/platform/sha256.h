// SHA-256 over libcrypto's EVP interface.
#ifndef OXCFG_PLATFORM_SHA256_H
#define OXCFG_PLATFORM_SHA256_H

#include <cstddef>

namespace OxBase {

constexpr size_t kSha256Bytes = 32;

// Writes the 32-byte digest of `len` bytes of `data` into `out`. Returns
// true on success; on failure `out` is left zeroed. Thread-safe.
bool Sha256(const void* data, size_t len, unsigned char out[kSha256Bytes]);

}  // namespace OxBase

#endif  // OXCFG_PLATFORM_SHA256_H
