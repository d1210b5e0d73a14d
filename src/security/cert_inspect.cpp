// Inspection of the installed certificate: loading it, its validity as
// local time texts, subject, issuer and serial number, and the legality
// check that an upload must pass.
#include <oxconfigmgr/OxOpenSSLCertificate.h>

#include <openssl/asn1.h>
#include <openssl/bn.h>
#include <openssl/objects.h>
#include <openssl/pem.h>
#include <openssl/x509.h>

#include <cstdint>
#include <ctime>
#include <limits>
#include <string>

#include "platform/osl.h"
#include "platform/xlog.h"
#include "security/cert_internal.h"

namespace OxConfigMgr {

using namespace cert;

namespace {

// The field of a name record that an entry of kind `nid` fills, or null for
// kinds the record does not show.
template <class DN>
std::string* fieldOf(DN& dn, int nid) {
  switch (nid) {
    case NID_countryName: return &dn.country;
    case NID_stateOrProvinceName: return &dn.state;
    case NID_localityName: return &dn.locality;
    case NID_organizationName: return &dn.organization;
    case NID_organizationalUnitName: return &dn.organizationalUnit;
    case NID_commonName: return &dn.commonName;
    case NID_pkcs9_emailAddress: return &dn.email;
    default: return nullptr;
  }
}

// The entry's text as UTF-8 (its raw bytes when it cannot be converted).
std::string entryText(const ASN1_STRING* data) {
  unsigned char* utf8 = nullptr;
  const int len = ASN1_STRING_to_UTF8(&utf8, data);
  BytesPtr owner(utf8);
  if (len >= 0 && utf8) return std::string(reinterpret_cast<const char*>(utf8), static_cast<size_t>(len));
  const unsigned char* raw = ASN1_STRING_get0_data(data);
  const int rawLen = ASN1_STRING_length(data);
  return raw && rawLen > 0 ? std::string(reinterpret_cast<const char*>(raw), static_cast<size_t>(rawLen))
                           : std::string();
}

// Fills `dn` from `name` entry by entry, a later entry of a kind replacing
// an earlier one. Failures are logged as `function`'s when it is given.
template <class DN>
int readName(const X509_NAME* name, DN& dn, const char* function) {
  if (!name) {
    if (function) xlog_format(5, "OXW", "[%s(%d)] X509 get subject name error!", function, __LINE__);
    return kCertNotInspected;
  }
  const int count = X509_NAME_entry_count(name);
  for (int i = 0; i < count; ++i) {
    const X509_NAME_ENTRY* entry = X509_NAME_get_entry(name, i);
    if (!entry) {
      if (function) xlog_format(5, "OXW", "[%s(%d)] X509 NAME get entry error!", function, __LINE__);
      return kCertNotInspected;
    }
    const ASN1_OBJECT* object = X509_NAME_ENTRY_get_object(entry);
    if (!object) {
      if (function) xlog_format(5, "OXW", "[%s(%d)] X509_NAME_ENTRY_get_object error!", function, __LINE__);
      return kCertNotInspected;
    }
    const ASN1_STRING* data = X509_NAME_ENTRY_get_data(entry);
    if (!data) {
      if (function) xlog_format(5, "OXW", "[%s(%d)] X509_NAME_ENTRY_get_data error!", function, __LINE__);
      return kCertNotInspected;
    }
    if (std::string* field = fieldOf(dn, OBJ_obj2nid(object))) *field = entryText(data);
  }
  return kOk;
}

}  // namespace

X509* COpenSSLCertificate::loadCertFile() try {
  const std::string path = getCertFliePath();
  if (path.empty()) {
    OXLOG(5, "[%s(%d)] load cert file is null!");
    return nullptr;
  }
  std::string pem;
  if (!readSmallFile(path, &pem)) {
    OXLOG(5, "[%s(%d)] Error get certificate req file!");
    return nullptr;
  }
  BioPtr bio(BIO_new_mem_buf(pem.data(), static_cast<int>(pem.size())));
  if (!bio) {
    OXLOG(5, "[%s(%d)] Error new BIO object!");
    return nullptr;
  }
  // The reader makes the object itself: one handed in would be freed by a
  // failed read behind its owner's back.
  X509* cert = PEM_read_bio_X509(bio.get(), nullptr, noPassPhrase, nullptr);
  if (!cert) {
    OXLOG(5, "[%s(%d)] Error reading certificate  req in file!");
    return nullptr;
  }
  return cert;
} catch (...) {
  return nullptr;
}

int COpenSSLCertificate::getCertInfo(CertificateInfo& info) try {
  X509Ptr cert(loadCertFile());
  if (!cert) {
    OXLOG(5, "[%s(%d)] load cert error!");
    return kCertNotLoaded;
  }
  if (getCertLife(cert.get(), info.notBefore, info.notAfter) != kOk) {
    OXLOG(5, "[%s(%d)] get cert life error!");
    return kCertNotInspected;
  }
  if (getCertSubjectInfo(cert.get(), info.subject) != kOk) {
    OXLOG(5, "[%s(%d)] get cert subject error!");
    return kCertNotInspected;
  }
  if (getCertIssuerInfo(cert.get(), info.issuer) != kOk) {
    OXLOG(5, "[%s(%d)] get cert issuer error!");
    return kCertNotInspected;
  }
  if (getCertSerial(cert.get(), info.serial) != kOk) {
    OXLOG(5, "[%s(%d)] get cert serial number error!");
    return kCertNotInspected;
  }
  info.keyType = "RSA_F4";
  return kOk;
} catch (...) {
  return kCertNotInspected;
}

int COpenSSLCertificate::getCertLife(X509* cert, std::string& notBefore, std::string& notAfter) try {
  if (!cert) return kCertNotInspected;
  const int gmtOff = getGMTOff();
  if (gmtOff == -1) {
    OXLOG(5, "[%s(%d)] get time zone error!");
    return kCertNotInspected;
  }
  notBefore = timeTToTimeStr(transferASN1toTime(X509_getm_notBefore(cert), nullptr) + gmtOff);
  notAfter = timeTToTimeStr(transferASN1toTime(X509_getm_notAfter(cert), nullptr) + gmtOff);
  return kOk;
} catch (...) {
  return kCertNotInspected;
}

int COpenSSLCertificate::getCertSubjectInfo(X509* cert, SubjectDN& subject) try {
  if (!cert) return kCertNotInspected;
  return readName(X509_get_subject_name(cert), subject, __FUNCTION__);
} catch (...) {
  return kCertNotInspected;
}

int COpenSSLCertificate::getCertIssuerInfo(X509* cert, IssuerDN& issuer) try {
  if (!cert) return kCertNotInspected;
  return readName(X509_get_issuer_name(cert), issuer, nullptr);
} catch (...) {
  return kCertNotInspected;
}

int COpenSSLCertificate::getCertSerial(X509* cert, std::string& serial) try {
  if (!cert) return kCertNotInspected;
  const ASN1_INTEGER* number = X509_get0_serialNumber(cert);
  if (!number) return kCertNotInspected;
  BignumPtr bn(ASN1_INTEGER_to_BN(number, nullptr));
  if (!bn) return kCertNotInspected;
  TextPtr text(BN_bn2dec(bn.get()));
  if (!text) return kCertNotInspected;
  serial = text.get();
  return kOk;
} catch (...) {
  return kCertNotInspected;
}

std::string COpenSSLCertificate::timeTToTimeStr(time_t t) try {
  // Microseconds of the runtime's clock; times beyond its range have no text.
  constexpr int64_t kLimit = std::numeric_limits<int64_t>::max() / 1000000;
  if (t > kLimit || t < -kLimit) return std::string();
  OSL_ExpTime local;
  if (OSL_ExpTimeFromTimeLocal(static_cast<OSL_Time>(t) * 1000000, &local) != 0) return std::string();
  std::tm parts{};
  parts.tm_sec = local.tm_sec;
  parts.tm_min = local.tm_min;
  parts.tm_hour = local.tm_hour;
  parts.tm_mday = local.tm_mday;
  parts.tm_mon = local.tm_mon;
  parts.tm_year = local.tm_year;
  parts.tm_wday = local.tm_wday;
  parts.tm_yday = local.tm_yday;
  parts.tm_isdst = local.tm_isdst;
  char text[64];
  const size_t n = std::strftime(text, sizeof text, "%F %T", &parts);
  return std::string(text, n);
} catch (...) {
  return std::string();
}

int COpenSSLCertificate::checkCertLegal() try {
  X509Ptr cert(loadCertFile());
  if (!cert) {
    OXLOG(5, "[%s(%d)] checkCertLegal:ssl_load_cert error!");
    return kCertNotLoaded;
  }
  CertificateInfo scratch;
  if (getCertLife(cert.get(), scratch.notBefore, scratch.notAfter) != kOk) {
    OXLOG(5, "[%s(%d)] checkCertLegal:get cert life error!");
    return kCertNotInspected;
  }
  if (getCertSubjectInfo(cert.get(), scratch.subject) != kOk) {
    OXLOG(5, "[%s(%d)] checkCertLegal:get cert subject error!");
    return kCertNotInspected;
  }
  if (getCertIssuerInfo(cert.get(), scratch.issuer) != kOk) {
    OXLOG(5, "[%s(%d)] checkCertLegal:get cert issuer error!");
    return kCertNotInspected;
  }
  if (getCertSerial(cert.get(), scratch.serial) != kOk) {
    OXLOG(5, "[%s(%d)] get cert sn error!");
    return kCertNotInspected;
  }
  return kOk;
} catch (...) {
  return kCertNotInspected;
}

}  // namespace OxConfigMgr
