// Digests and comparisons over libcrypto, for code outside the security
// area that must not speak OpenSSL itself.
#ifndef OXCFG_PLATFORM_CRYPTO_UTIL_H
#define OXCFG_PLATFORM_CRYPTO_UTIL_H

#include <cstddef>

namespace OxBase {

constexpr size_t kSha256Bytes = 32;

// Writes the 32-byte digest of `len` bytes of `data` into `out`. Returns
// true on success; on failure `out` is left zeroed. Thread-safe.
bool Sha256(const void* data, size_t len, unsigned char out[kSha256Bytes]);

// True when the `len` bytes at `a` and `b` are equal; the time taken does not
// depend on where they differ (for secrets such as tokens). Thread-safe.
bool ConstantTimeEquals(const void* a, const void* b, size_t len);

}  // namespace OxBase

#endif  // OXCFG_PLATFORM_CRYPTO_UTIL_H
