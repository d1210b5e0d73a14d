// Feeds arbitrary text as an ASN.1 UTCTime or GeneralizedTime (the first
// byte chooses) to the time conversion: it must never read past the text,
// and an error must always give 0.
#include <oxconfigmgr/OxOpenSSLCertificate.h>
#include <openssl/asn1.h>
#include <stdlib.h>

#include <cstddef>
#include <cstdint>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  static const bool utc = [] {
    setenv("TZ", "UTC0", 1);
    return true;
  }();
  (void)utc;
  if (size == 0) return 0;
  static OxConfigMgr::COpenSSLCertificate cert;
  const int type = (data[0] & 1) ? V_ASN1_GENERALIZEDTIME : V_ASN1_UTCTIME;
  ASN1_STRING* s = ASN1_STRING_type_new(type);
  if (!s) return 0;
  // set0 leaves the text unterminated: the reader must respect the length.
  unsigned char* copy = static_cast<unsigned char*>(OPENSSL_malloc(size - 1 ? size - 1 : 1));
  if (!copy) {
    ASN1_STRING_free(s);
    return 0;
  }
  for (size_t i = 1; i < size; ++i) copy[i - 1] = data[i];
  ASN1_STRING_set0(s, copy, static_cast<int>(size - 1));
  int error = -1;
  const time_t t = cert.transferASN1toTime(s, &error);
  if (error < 0 || error > 2) __builtin_trap();
  if (error != 0 && t != 0) __builtin_trap();
  ASN1_STRING_free(s);
  return 0;
}
