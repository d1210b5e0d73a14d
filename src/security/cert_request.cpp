// Certificate signing requests: building and signing one for the stored
// subject, writing it for download, reading it back and deleting it.
#include <oxconfigmgr/OxOpenSSLCertificate.h>

#include <openssl/evp.h>
#include <openssl/objects.h>
#include <openssl/pem.h>
#include <openssl/x509.h>

#include <cstring>
#include <string>
#include <vector>

#include "platform/osl.h"
#include "platform/xlog.h"
#include "security/cert_internal.h"

namespace OxConfigMgr {

using namespace cert;

namespace {

// Two upper-case ASCII letters.
bool validCountry(const std::string& country) {
  return country.size() == 2 && country[0] >= 'A' && country[0] <= 'Z' && country[1] >= 'A' && country[1] <= 'Z';
}

// The subject entries after the country, in the order they are added; an
// empty field is left out. `line` is the source line logged with `failure`.
struct SubjectField {
  const char* name;
  std::string SubjectDN::*value;
  const char* failure;
  int line;
};

#define OXCFG_FIELD(name, member, failure) {name, &SubjectDN::member, failure, __LINE__}
const SubjectField kSubjectFields[] = {
    OXCFG_FIELD("stateOrProvinceName", state, "[%s(%d)] add stateOrProvinceName failed!"),
    OXCFG_FIELD("localityName", locality, "[%s(%d)] add localityName failed!"),
    OXCFG_FIELD("organizationName", organization, "[%s(%d)] add organizationName failed!"),
    OXCFG_FIELD("organizationalUnitName", organizationalUnit, "[%s(%d)] add organizationalUnitName failed!"),
    OXCFG_FIELD("commonName", commonName, "[%s(%d)] add commonName failed!"),
    OXCFG_FIELD("emailAddress", email, "[%s(%d)] add emailAddress failed!"),
};
#undef OXCFG_FIELD

// Closes an OSL file on every path.
class OslFile {
 public:
  explicit OslFile(OSL_File f) : f_(f) {}
  ~OslFile() {
    if (f_ != OSL_INVALID_FILE) OSL_CloseFile(f_);
  }
  OslFile(const OslFile&) = delete;
  OslFile& operator=(const OslFile&) = delete;
  OSL_File get() const { return f_; }
  bool valid() const { return f_ != OSL_INVALID_FILE; }

 private:
  OSL_File f_;
};

}  // namespace

int COpenSSLCertificate::generateReq() try {
  const std::string reqPath = getCertReqPath();
  if (exists(reqPath)) return kExists;
  const int rc = generateReqWithoutFile();
  if (rc != kOk) {
    OXLOG(5, "[%s(%d)] generate cert req error!!");
    return rc;
  }
  X509_REQ* req = m_req.get();
  return writePublicPem(reqPath, [req](BIO* bio) { return PEM_write_bio_X509_REQ(bio, req); }, __FUNCTION__);
} catch (...) {
  return kFailed;
}

int COpenSSLCertificate::generateReqWithoutFile() try {
  // The country is checked before a key is made: a refused request must not
  // replace the key the web server is using.
  const SubjectDN& subject = m_certReq.subject;
  if (!validCountry(subject.country)) {
    OXLOG(5, "[%s(%d)] Error param");
    return kBadParam;
  }
  const std::string& password = m_certReq.password;
  if (generateRSA(2048, getCertKeyPath().c_str(), reinterpret_cast<const unsigned char*>(password.c_str()),
                  static_cast<int>(password.size())) != kOk) {
    OXLOG(5, "[%s(%d)] create RSA key failed!");
    return kFailed;
  }
  NamePtr name(X509_NAME_new());
  if (!name) {
    OXLOG(5, "[%s(%d)] create X509_NAME failed!");
    return kFailed;
  }
  if (addSubjectEntity(name.get(), "countryName", subject.country.c_str()) != kOk) {
    OXLOG(5, "[%s(%d)] add countryName failed!");
    return kFailed;
  }
  for (const SubjectField& field : kSubjectFields) {
    const std::string& value = subject.*field.value;
    if (value.empty()) continue;
    if (addSubjectEntity(name.get(), field.name, value.c_str()) != kOk) {
      xlog_format(5, "OXW", field.failure, __FUNCTION__, field.line);
      return kFailed;
    }
  }
  if (X509_REQ_set_subject_name(m_req.get(), name.get()) != 1) {
    OXLOG(5, "[%s(%d)] Error adding subject to request!");
    return kFailed;
  }
  if (EVP_PKEY_get_base_id(m_pkey.get()) != EVP_PKEY_RSA) {
    OXLOG(5, "[%s(%d)] Error checking public key for a valid digest!");
    return kFailed;
  }
  if (X509_REQ_sign(m_req.get(), m_pkey.get(), EVP_sha1()) <= 0) {
    OXLOG(5, "[%s(%d)] Error signing request!");
    return kFailed;
  }
  return kOk;
} catch (...) {
  return kFailed;
}

int COpenSSLCertificate::addSubjectEntity(X509_NAME* name, const char* field, const char* value) try {
  if (!name || !field || !value) return kFailed;
  const int nid = OBJ_txt2nid(field);
  if (nid == NID_undef) {
    OXLOG(5, "[%s(%d)] concert nid error");
    return kFailed;
  }
  NameEntryPtr entry(X509_NAME_ENTRY_create_by_NID(nullptr, nid, MBSTRING_ASC,
                                                   reinterpret_cast<const unsigned char*>(value), -1));
  if (!entry) {
    OXLOG(5, "[%s(%d)] create ent error");
    return kFailed;
  }
  // The name copies the entry.
  if (X509_NAME_add_entry(name, entry.get(), -1, 0) != 1) {
    OXLOG(5, "[%s(%d)] add to subjectname error");
    return kFailed;
  }
  return kOk;
} catch (...) {
  return kFailed;
}

int COpenSSLCertificate::getCertReq(CertificateReq& req) try {
  const std::string path = getCertReqPath();
  if (!exists(path)) {
    OXLOG(5, "[%s(%d)] [%s]cert req file not exist!", path.c_str());
    return kReqUnreadable;
  }
  std::string pem;
  if (!readSmallFile(path, &pem)) {
    OXLOG(5, "[%s(%d)] Error get certificate req file!");
    return kReqUnreadable;
  }
  BioPtr bio(BIO_new_mem_buf(pem.data(), static_cast<int>(pem.size())));
  if (!bio) {
    OXLOG(5, "[%s(%d)]  save rsa key create bio file error");
    return kFailed;
  }
  ReqPtr fileReq(PEM_read_bio_X509_REQ(bio.get(), nullptr, noPassPhrase, nullptr));
  if (!fileReq) {
    OXLOG(5, "[%s(%d)] Error reading certificate  req in file!");
    return kReqUnreadable;
  }
  X509_NAME* name = X509_REQ_get_subject_name(fileReq.get());
  if (!name) {
    OXLOG(5, "[%s(%d)] getting subject name from request error!");
    return kReqUnreadable;
  }
  if (!m_cert || X509_set_subject_name(m_cert.get(), name) != 1) {
    OXLOG(5, "[%s(%d)] Error setting subject name of certificate!");
    return kReqUnreadable;
  }
  if (X509_set_issuer_name(m_cert.get(), name) != 1) {
    OXLOG(5, "[%s(%d)] setting issuer name of certificate error!");
    return kReqUnreadable;
  }
  PkeyPtr publicKey(X509_REQ_get_pubkey(fileReq.get()));
  if (!publicKey) {
    OXLOG(5, "[%s(%d)] X509_get_pubkey error!");
    return kReqUnreadable;
  }
  req.keyBits = EVP_PKEY_get_bits(publicKey.get());
  if (getCertSubjectInfo(m_cert.get(), req.subject) != kOk) {
    OXLOG(5, "[%s(%d)] get cert subject error!");
    return kReqUnreadable;
  }
  return kOk;
} catch (...) {
  return kReqUnreadable;
}

int COpenSSLCertificate::downCertReq(char* buffer, long& length) try {
  const std::string path = getCertReqPath();
  if (!exists(path)) {
    OXLOG(5, "[%s(%d)] cert req file not exist!");
    return kReqUnreadable;
  }
  OslFile file(OSL_OpenFile(path.c_str(), OSL_FILE_READ | OSL_FILE_BINARY, 0));
  if (!file.valid()) {
    OXLOG(5, "[%s(%d)] open cert req file failed!");
    return kReqUnreadable;
  }
  const int64_t size = OSL_SeekFile(file.get(), 0, OSL_SEEK_END);
  if (size < 0) {
    OXLOG(5, "[%s(%d)] read nginx config file failed!");
    return kReqUnreadable;
  }
  length = static_cast<long>(size);
  // Checked before anything is allocated: a folder or a huge file in the
  // request's place must not cost memory.
  if (size > static_cast<int64_t>(kMaxPemBytes)) {
    OXLOG(5, "[%s(%d)] read cert file failed!");
    return kReqUnreadable;
  }
  std::vector<char> data;
  try {
    data.assign(static_cast<size_t>(size) + 1, 0);
  } catch (...) {
    OXLOG(5, "[%s(%d)] new buf error!");
    return kReqUnreadable;
  }
  // One byte more than the size is asked for: a file that grew meanwhile,
  // or a folder, does not read as exactly `size` bytes.
  if (OSL_SeekFile(file.get(), 0, OSL_SEEK_SET) != 0 ||
      OSL_ReadFile(file.get(), data.data(), static_cast<int>(size) + 1) != static_cast<int>(size)) {
    OXLOG(5, "[%s(%d)] read nginx config file failed!");
    return kReqUnreadable;
  }
  if (!buffer) {
    OXLOG(5, "[%s(%d)] read cert file failed!");
    return kReqUnreadable;
  }
  std::memcpy(buffer, data.data(), static_cast<size_t>(size));
  if (size < static_cast<int64_t>(kMaxPemBytes)) buffer[size] = '\0';
  return kOk;
} catch (...) {
  return kReqUnreadable;
}

int COpenSSLCertificate::deleteCertReq() try {
  const std::string path = getCertReqPath();
  if (!exists(path)) return kNoSuchFile;
  return OSL_DeleteFile(path.c_str()) == 0 ? kOk : kNotDeleted;
} catch (...) {
  return kNotDeleted;
}

}  // namespace OxConfigMgr
