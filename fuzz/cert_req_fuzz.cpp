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

#include "fuzz_workdir.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  oxfuzz::enterWorkDir("cert-req", {"nginx", "nginx/conf"});
  if (!oxfuzz::putFile("nginx/conf/certreq.pem", data, size)) return 0;

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
