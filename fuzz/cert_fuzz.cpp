// Feeds arbitrary bytes as the installed certificate ("nginx/conf/cert.pem")
// to the certificate reader: loading, validity, subject, issuer, serial and
// the legality check that uploads pass. Whatever the bytes, the reader must
// answer with a code and leave every text bounded.
#include <oxconfigmgr/OxOpenSSLCertificate.h>
#include <stdlib.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <string>

#include "fuzz_workdir.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  oxfuzz::enterWorkDir("cert", {"nginx", "nginx/conf"});
  // Validity times are read in UTC whatever the machine's zone.
  static const bool utc = ::setenv("TZ", "UTC0", 1) == 0;
  if (!utc) return 0;
  if (!oxfuzz::putFile("nginx/conf/cert.pem", data, size)) return 0;

  static OxConfigMgr::COpenSSLCertificate cert;
  OxConfigMgr::CertificateInfo info;
  const int rc = cert.getCertInfo(info);
  if (rc != 0 && rc != 517 && rc != 518) __builtin_trap();
  // An upload of the same bytes, judged by the legality check, is taken
  // exactly when the reader could inspect them (the file exists, so it is
  // refused as such; after a delete it is judged by its content). The
  // check runs inside the upload only: each extra parse halves the rate.
  if (cert.deleteCertFile() != 0) __builtin_trap();
  std::string copy(reinterpret_cast<const char*>(data), size);
  const int up = cert.uploadCert(size ? &copy[0] : nullptr, static_cast<int>(size));
  if (size > 0 && size <= 32768 && (up == 0) != (rc == 0)) __builtin_trap();
  cert.deleteCertFile();
  return 0;
}
