// The TLS identity of the gateway's web server: its RSA key, certificate
// signing request and certificate, kept as PEM files under "nginx/conf/" of
// the working directory:
//
//   cert.key      the private key, enciphered (AES-256-CBC) with the key
//                 password when one is set; mode 0600
//   key.pass      the key password in clear (possibly empty), for the web
//                 server to open the key; mode 0600
//   certreq.pem   the certificate signing request, for download
//   cert.pem      the certificate the web server presents
//
// Every file is replaced atomically (temporary file, fsync, rename), so a
// reader sees the old or the new content, never a partial one. Missing
// folders of "nginx/conf/" are created on the first write.
//
// Result codes: 0 success; 2 nothing to delete (or no such file); 3 upload
// refused; 512 a library call or file write failed; 513 invalid country;
// 514 request file missing or unreadable; 515 file could not be deleted;
// 516 the target file exists already; 517 certificate file not loadable;
// 518 certificate not inspectable. Every failure is logged.
//
// Thread-safety: none. One caller at a time per object (the web service
// serialises its requests); concurrent generation and reading of the same
// files are not guarded. No method lets an exception escape.
#ifndef OXCONFIGMGR_OXOPENSSLCERTIFICATE_H
#define OXCONFIGMGR_OXOPENSSLCERTIFICATE_H

#include <oxconfigmgr/OxExport.h>

#include <cstdint>
#include <ctime>
#include <memory>
#include <string>

// libcrypto's own opaque types, declared as its headers declare them, so
// that a host does not need them to use this class.
struct evp_pkey_st;
struct X509_req_st;
struct x509_st;
struct X509_name_st;
struct asn1_string_st;
typedef struct evp_pkey_st EVP_PKEY;
typedef struct X509_req_st X509_REQ;
typedef struct x509_st X509;
typedef struct X509_name_st X509_NAME;

namespace OxConfigMgr {

// A distinguished name as the web interface shows it.
struct SubjectDN {
  std::string country;             // countryName: two upper-case letters
  std::string state;               // stateOrProvinceName
  std::string locality;            // localityName
  std::string organization;        // organizationName
  std::string organizationalUnit;  // organizationalUnitName
  std::string commonName;          // commonName
  std::string email;               // emailAddress
};

// The issuer of a certificate; the same seven fields as SubjectDN.
struct IssuerDN {
  std::string country;
  std::string state;
  std::string locality;
  std::string organization;
  std::string organizationalUnit;
  std::string commonName;
  std::string email;
};

// Parameters of a key and request, and what getCertReq reads back.
struct CertificateReq {
  std::string text1;     // the web side's; copied by setCertificateReq
  int32_t validity = 0;  // days of a self-signed certificate
  std::string password;  // key password; empty: the key is kept in clear
  int32_t keyBits = 0;   // set by getCertReq: size of the request's key
  std::string text2;     // the web side's; not copied by setCertificateReq
  std::string text3;     // the web side's; not copied by setCertificateReq
  SubjectDN subject;
};

// What getCertInfo reports of the installed certificate.
struct CertificateInfo {
  std::string keyType;    // "RSA_F4"
  std::string text1;      // the web side's; not filled here
  std::string notBefore;  // local time, "YYYY-MM-DD hh:mm:ss"
  std::string notAfter;   // same form
  std::string serial;     // decimal
  std::string text2;      // the web side's; not filled here
  std::string text3;      // the web side's; not filled here
  IssuerDN issuer;
  SubjectDN subject;
};

// The web server's key, certificate request and certificate under
// "nginx/conf/" (see the top of this file).
class OXCFG_API COpenSSLCertificate {
 public:
  // Initialises libcrypto and creates the key, request and certificate
  // objects; a failed creation is logged and leaves that member empty (the
  // methods needing it then fail with their code).
  COpenSSLCertificate();
  ~COpenSSLCertificate();
  COpenSSLCertificate(const COpenSSLCertificate&) = delete;
  COpenSSLCertificate& operator=(const COpenSSLCertificate&) = delete;

  // Paths under the working directory, built anew on every call.
  std::string getCertFliePath();  // "nginx/conf/cert.pem"
  std::string getCertReqPath();   // "nginx/conf/certreq.pem"
  std::string getCertKeyPath();   // "nginx/conf/cert.key"
  std::string getPasswdPath();    // "nginx/conf/key.pass"

  // Keeps text1, validity, password, keyBits and the subject of `req` for
  // the next generation.
  void setCertificateReq(CertificateReq& req);

  // --- keys and requests ------------------------------------------------

  // Makes an RSA key of `bits` bits (exponent 65537), makes it the key of
  // this object and of its request, and saves it to `keyPath` with
  // `password` (saveRSAKey; `passwordLen` is not needed beyond the text's
  // own end). 0 or 512.
  int generateRSA(int bits, const char* keyPath, const unsigned char* password, int passwordLen);
  // Writes the key to `keyPath` (mode 0600): enciphered with AES-256-CBC
  // under `password` when it is given and not empty, otherwise in clear;
  // then writes the password text (possibly empty, no line end) to the
  // password file (mode 0600). 0 or 512.
  int saveRSAKey(const char* keyPath, const unsigned char* password);
  // Builds a new key and a signed request from the stored parameters and
  // writes the request file. 516 when the request file exists (nothing is
  // changed); 513 for a bad country (no file written); otherwise 0 or 512.
  int generateReq();
  // Builds a new key (written with its password file) and a request for the
  // stored subject, signed with SHA-1, in memory only. The country must be
  // two upper-case letters (513 otherwise; checked before any key is made);
  // empty fields other than the country are left out. 0, 513 or 512.
  int generateReqWithoutFile();
  // Appends the entry `field` (an OpenSSL short or long field name) with
  // the text `value` to `name`. 0 or 512.
  int addSubjectEntity(X509_NAME* name, const char* field, const char* value);
  // Reads the request file into `req.keyBits` and `req.subject` (the rest of
  // `req` is left as it is). 0, 514 (missing or unreadable) or 512.
  int getCertReq(CertificateReq& req);
  // Copies the request file into `buffer`, which must hold 32768 bytes, and
  // sets `length` to the file's size; a NUL follows the text when there is
  // room. 0, or 514 (missing, unreadable, null buffer, or larger than 32768
  // bytes: `length` then holds the size and nothing is copied).
  int downCertReq(char* buffer, long& length);
  // Deletes the request file: 0, 2 when there is none, 515 when it could
  // not be deleted.
  int deleteCertReq();

  // --- certificates -----------------------------------------------------

  // Builds a new key and request and signs them into a self-signed
  // certificate (X.509 v3, serial 2, SHA-256) valid for the stored
  // validity in days. 516 when the certificate file exists (no key is
  // made); otherwise the code of the failed step, or 0.
  int generateSelfCert();
  // Signs this object's request with its key into the certificate file
  // `certPath`: version `version` (2 for X.509 v3), serial 2, subject and
  // issuer the request's subject, valid from now shifted by the local
  // offset from UTC for `days` days. `password` is not used. 0 or 512.
  int signCertReq(long version, int days, char* password, char* certPath);
  // 0 when `path` can be opened for reading, 2 otherwise.
  int checkCertExist(char* path);
  // The local time's offset from UTC in seconds, −1 on failure.
  int getGMTOff();
  // Deletes the certificate file: 0, 2 when there is none, 515 when it
  // could not be deleted.
  int deleteCertFile();
  // Installs `length` bytes of `data`, byte for byte, as the certificate
  // file when they hold a readable PEM certificate. 3 for null data, a
  // negative length or more than 32768 bytes (nothing touched), 516 when a
  // certificate file exists (delete it first), 3 when the bytes could not
  // be written or are not a readable certificate (no file is left).
  int uploadCert(char* data, int length);
  // The certificate file as a new object owned by the caller (free it with
  // X509_free), or null.
  X509* loadCertFile();
  // Fills validity, subject, issuer, serial and keyType from the
  // certificate file. 0, 517 (not loadable) or 518.
  int getCertInfo(CertificateInfo& info);
  // The validity bounds of `cert` as local time texts; for certificates
  // made by signCertReq they show the local time of signing. 0 or 518.
  int getCertLife(X509* cert, std::string& notBefore, std::string& notAfter);
  // Seconds since 1970 of an ASN.1 UTCTime or GeneralizedTime. On error
  // returns 0 and sets `*error` (when given) to 1 for a malformed text or 2
  // for a time out of range; 0 otherwise.
  time_t transferASN1toTime(asn1_string_st* time, int* error);
  // Reads exactly `digits` decimal digits at `*cursor`, advancing it. A
  // non-digit stops the read (the cursor stays on it), sets `*error` to 1
  // and gives 0; a value outside [min, max] (or beyond an int, which
  // saturates) sets `*error` to 1 but is still returned; a negative count
  // gives −1. A null `error` is allowed.
  int mypint(const char** cursor, int digits, int min, int max, int* error);
  int getCertSubjectInfo(X509* cert, SubjectDN& subject);  // 0 or 518
  int getCertIssuerInfo(X509* cert, IssuerDN& issuer);     // 0 or 518
  int getCertSerial(X509* cert, std::string& serial);      // 0 or 518
  // Local time of `t` as "YYYY-MM-DD hh:mm:ss" ("" when it cannot be
  // converted).
  std::string timeTToTimeStr(time_t t);
  // 0 when the certificate file loads and its validity, subject, issuer and
  // serial can be read; 517 when it does not load, 518 otherwise. Dates,
  // chain and key match are not checked.
  int checkCertLegal();

 private:
  struct Free {
    void operator()(EVP_PKEY* p) const;
    void operator()(X509_REQ* p) const;
    void operator()(X509* p) const;
  };

  std::unique_ptr<EVP_PKEY, Free> m_pkey;  // the key pair
  std::unique_ptr<X509_REQ, Free> m_req;   // the request
  std::unique_ptr<X509, Free> m_cert;      // the certificate being built or read
  std::unique_ptr<X509, Free> m_cert2;     // kept for the web side; unused here
  CertificateReq m_certReq;                // parameters last set
};

}  // namespace OxConfigMgr

#endif  // OXCONFIGMGR_OXOPENSSLCERTIFICATE_H
