// Shared pieces of the certificate class: owners for libcrypto objects, the
// result codes, and the one way its files are read and written.
#ifndef OXCFG_SECURITY_CERT_INTERNAL_H
#define OXCFG_SECURITY_CERT_INTERNAL_H

#include <openssl/bio.h>
#include <openssl/bn.h>
#include <openssl/crypto.h>
#include <openssl/evp.h>
#include <openssl/x509.h>

#include <cstddef>
#include <functional>
#include <memory>
#include <string>

namespace OxConfigMgr {
namespace cert {

// Result codes of the certificate class.
constexpr int kOk = 0;
constexpr int kNoSuchFile = 2;
constexpr int kUploadRefused = 3;
constexpr int kFailed = 512;
constexpr int kBadParam = 513;
constexpr int kReqUnreadable = 514;
constexpr int kNotDeleted = 515;
constexpr int kExists = 516;
constexpr int kCertNotLoaded = 517;
constexpr int kCertNotInspected = 518;

// The largest request handed out and the largest certificate accepted.
constexpr size_t kMaxPemBytes = 32768;
// Files read back are at most this large; anything bigger is not ours.
constexpr size_t kMaxReadBytes = 1u << 20;

template <class T, void (*F)(T*)>
struct Deleter {
  void operator()(T* p) const { F(p); }
};
inline void freeOpenSSLBytes(unsigned char* p) { OPENSSL_free(p); }
inline void freeOpenSSLText(char* p) { OPENSSL_free(p); }

using BioPtr = std::unique_ptr<BIO, Deleter<BIO, BIO_free_all>>;
using PkeyPtr = std::unique_ptr<EVP_PKEY, Deleter<EVP_PKEY, EVP_PKEY_free>>;
using PkeyCtxPtr = std::unique_ptr<EVP_PKEY_CTX, Deleter<EVP_PKEY_CTX, EVP_PKEY_CTX_free>>;
using ReqPtr = std::unique_ptr<X509_REQ, Deleter<X509_REQ, X509_REQ_free>>;
using X509Ptr = std::unique_ptr<X509, Deleter<X509, X509_free>>;
using NamePtr = std::unique_ptr<X509_NAME, Deleter<X509_NAME, X509_NAME_free>>;
using NameEntryPtr = std::unique_ptr<X509_NAME_ENTRY, Deleter<X509_NAME_ENTRY, X509_NAME_ENTRY_free>>;
using BignumPtr = std::unique_ptr<BIGNUM, Deleter<BIGNUM, BN_free>>;
using BytesPtr = std::unique_ptr<unsigned char, Deleter<unsigned char, freeOpenSSLBytes>>;
using TextPtr = std::unique_ptr<char, Deleter<char, freeOpenSSLText>>;

// Where a file write stopped.
enum class WriteResult {
  kOk,      // the new content is in place
  kNoBio,   // no memory BIO for the encoding
  kEncode,  // the PEM encoder failed
  kOpen,    // the file (or its temporary) could not be created
  kWrite,   // writing, syncing or renaming failed; the old file is intact
};

// Replaces `path` atomically with `len` bytes (mode 0600 when `secret`,
// else the file's own mode), creating missing parent folders first. A
// write whose content landed but whose folder sync failed counts as done:
// the file holds the new content.
WriteResult writeBytes(const std::string& path, const void* data, size_t len, bool secret);

// Encodes with `encode` (a PEM_write_bio_... call: 1 on success) into a
// memory BIO, which is the secure heap's and wiped when `secret`, and
// writes the result with writeBytes.
WriteResult writePem(const std::string& path, bool secret, const std::function<int(BIO*)>& encode);

// writePem for a public file (request, certificate) as the class's result:
// kOk, or kFailed with the failure logged under `function`'s name.
int writePublicPem(const std::string& path, const std::function<int(BIO*)>& encode, const char* function);

// True when something (file, folder, ...) exists at `path`.
bool exists(const std::string& path);

// Reads a whole regular file of at most kMaxReadBytes.
bool readSmallFile(const std::string& path, std::string* out);

// Pass-phrase callback that never prompts: PEM readers must not wait on a
// terminal for an enciphered block in a file that should hold none.
int noPassPhrase(char* buf, int size, int rwflag, void* user);

}  // namespace cert
}  // namespace OxConfigMgr

#endif  // OXCFG_SECURITY_CERT_INTERNAL_H
