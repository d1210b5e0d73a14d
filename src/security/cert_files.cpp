// Reading and atomically writing the certificate class's files.
#include <openssl/bio.h>

#include <string>

#include "platform/file_util.h"
#include "platform/osl.h"
#include "platform/xlog.h"
#include "security/cert_internal.h"

namespace OxConfigMgr {
namespace cert {

namespace {

// Creates every missing folder above `path` ("nginx", "nginx/conf").
void makeParents(const std::string& path) {
  const std::string dir = OxBase::DirName(path);
  if (dir == "." || dir == "/" || exists(dir)) return;
  for (size_t slash = dir.find('/', 1); ; slash = dir.find('/', slash + 1)) {
    const std::string part = dir.substr(0, slash);
    if (!exists(part)) OSL_MakeDir(part.c_str());
    if (slash == std::string::npos) break;
  }
}

}  // namespace

bool exists(const std::string& path) { return OSL_AccessFile(path.c_str(), 0) == 0; }

bool readSmallFile(const std::string& path, std::string* out) {
  return OxBase::ReadWholeFile(path, out, kMaxReadBytes);
}

WriteResult writeBytes(const std::string& path, const void* data, size_t len, bool secret) {
  makeParents(path);
  const OxBase::WriteOutcome out =
      OxBase::WriteFileAtomic(path, data, len, secret ? OxBase::FileMode::kSecret : OxBase::FileMode::kKeep);
  if (out.landed()) return WriteResult::kOk;
  return out.stage == OxBase::WriteStage::kCreateTemp ? WriteResult::kOpen : WriteResult::kWrite;
}

WriteResult writePem(const std::string& path, bool secret, const std::function<int(BIO*)>& encode) {
  BioPtr bio(BIO_new(secret ? BIO_s_secmem() : BIO_s_mem()));
  if (!bio) return WriteResult::kNoBio;
  if (encode(bio.get()) != 1) return WriteResult::kEncode;
  char* text = nullptr;
  const long len = BIO_get_mem_data(bio.get(), &text);
  if (len <= 0 || !text) return WriteResult::kEncode;
  return writeBytes(path, text, static_cast<size_t>(len), secret);
}

int writePublicPem(const std::string& path, const std::function<int(BIO*)>& encode, const char* function) {
  switch (writePem(path, false, encode)) {
    case WriteResult::kOk:
      return kOk;
    case WriteResult::kNoBio:
    case WriteResult::kOpen:
      xlog_format(5, "OXW", "[%s(%d)]  save rsa key create bio file error", function, __LINE__);
      return kFailed;
    default:
      xlog_format(5, "OXW", "[%s(%d)] Error while writing request!", function, __LINE__);
      return kFailed;
  }
}

int noPassPhrase(char*, int, int, void*) { return 0; }

}  // namespace cert
}  // namespace OxConfigMgr
