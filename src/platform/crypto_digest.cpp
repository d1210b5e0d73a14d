#include "platform/crypto_digest.h"

#include <openssl/evp.h>

#include <cstring>
#include <memory>

namespace OxBase {

namespace {
struct FreeDigestContext {
  void operator()(EVP_MD_CTX* ctx) const noexcept { EVP_MD_CTX_free(ctx); }
};
}  // namespace

bool Sha256Pieces(std::initializer_list<DigestPiece> pieces, unsigned char out[kSha256Bytes]) noexcept {
  std::memset(out, 0, kSha256Bytes);
  std::unique_ptr<EVP_MD_CTX, FreeDigestContext> ctx(EVP_MD_CTX_new());
  if (!ctx || EVP_DigestInit_ex(ctx.get(), EVP_sha256(), nullptr) != 1) return false;
  for (const DigestPiece& piece : pieces) {
    if (!piece.data && piece.len > 0) return false;
    if (piece.len > 0 && EVP_DigestUpdate(ctx.get(), piece.data, piece.len) != 1) return false;
  }
  unsigned int len = 0;
  if (EVP_DigestFinal_ex(ctx.get(), out, &len) != 1 || len != kSha256Bytes) {
    std::memset(out, 0, kSha256Bytes);
    return false;
  }
  return true;
}

}  // namespace OxBase
