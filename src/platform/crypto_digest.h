// Digests of a text made of several pieces, computed without joining the
// pieces first, so a secret among them is never copied into another buffer.
#ifndef OXCFG_PLATFORM_CRYPTO_DIGEST_H
#define OXCFG_PLATFORM_CRYPTO_DIGEST_H

#include <cstddef>
#include <initializer_list>

#include "platform/crypto_util.h"

namespace OxBase {

// `len` bytes at `data` (null only with `len` 0).
struct DigestPiece {
  const void* data;
  size_t len;
};

// SHA-256 of the pieces' bytes one after the other: the digest of their
// concatenation. True on success; on failure `out` is left zeroed.
// Thread-safe; allocates nothing on the C++ heap and throws nothing.
bool Sha256Pieces(std::initializer_list<DigestPiece> pieces, unsigned char out[kSha256Bytes]) noexcept;

}  // namespace OxBase

#endif  // OXCFG_PLATFORM_CRYPTO_DIGEST_H
