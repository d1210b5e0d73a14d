// Feeds arbitrary bytes as the certificate request ("nginx/conf/certreq.pem")
// to its readers: the subject and key size, and the download into a
// 32768-byte buffer, which must never be overrun.
#include <oxconfigmgr/OxOpenSSLCertificate.h>
#include <stdlib.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  static const bool inTempDir = [] {
    char tmpl[] = "/tmp/oxcfg-fuzz-XXXXXX";
    if (!mkdtemp(tmpl) || chdir(tmpl) != 0) return false;
    mkdir("nginx", 0755);
    mkdir("nginx/conf", 0755);
    return true;
  }();
  if (!inTempDir) return 0;
  FILE* f = std::fopen("nginx/conf/certreq.pem", "wb");
  if (!f) return 0;
  std::fwrite(data, 1, size, f);
  std::fclose(f);

  static OxConfigMgr::COpenSSLCertificate cert;
  OxConfigMgr::CertificateReq req;
  const int rc = cert.getCertReq(req);
  if (rc != 0 && rc != 512 && rc != 514) __builtin_trap();
  // Exactly the documented size: ASan reports any write past it.
  std::vector<char> buffer(32768);
  long length = -1;
  const int down = cert.downCertReq(buffer.data(), length);
  if (length != static_cast<long>(size)) __builtin_trap();
  if ((down == 0) != (size <= 32768)) __builtin_trap();
  if (down == 0 && std::memcmp(buffer.data(), data, size) != 0) __builtin_trap();
  return 0;
}
