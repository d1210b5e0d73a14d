// oxcfg: the web server's key, certificate request and certificate.
#include <oxconfigmgr/OxConfigMgr.h>

#include <algorithm>
#include <cstdio>
#include <memory>
#include <string>
#include <vector>

#include "cli/cli.h"
#include "cli/secret_input.h"
#include "platform/file_util.h"
#include "platform/secure_wipe.h"

namespace oxcfg {
namespace {

using OxConfigMgr::CertificateInfo;
using OxConfigMgr::CertificateReq;
using OxConfigMgr::COpenSSLCertificate;

constexpr size_t kMaxCertificate = 32768;
const char* const kSubjectUsage =
    "[--country CC] [--state S] [--locality L] [--org O] [--unit U] [--cn NAME] [--email ADDR]";

std::string meaning(int code) {
  switch (code) {
    case 2: return "there is no such file";
    case 3: return "refused: not a readable PEM certificate, or more than 32768 bytes";
    case 512: return "a key, request or file operation failed (see the log)";
    case 513: return "the country must be two upper-case letters";
    case 514: return "there is no readable certificate request";
    case 515: return "the file could not be deleted";
    case 516: return "the file exists already; delete it first";
    case 517: return "there is no readable certificate";
    case 518: return "the certificate could not be inspected";
    default: return "";
  }
}

std::shared_ptr<COpenSSLCertificate> certificates() {
  auto cert = OX_ConfigMgr_GetOpenSSLCert();
  if (!cert) std::fprintf(stderr, "oxcfg: the certificate object is not started\n");
  return cert;
}

template <class DN>
std::string nameText(const DN& dn) {
  const std::pair<const char*, const std::string*> parts[] = {
      {"C", &dn.country},     {"ST", &dn.state},          {"L", &dn.locality},
      {"O", &dn.organization}, {"OU", &dn.organizationalUnit}, {"CN", &dn.commonName},
      {"emailAddress", &dn.email}};
  std::string text;
  for (const auto& p : parts) {
    if (p.second->empty()) continue;
    if (!text.empty()) text += ", ";
    text += std::string(p.first) + "=" + *p.second;
  }
  return text.empty() ? "-" : text;
}

// Parses subject options (and --days when `days` is given) into `req`.
// False with a message for anything else.
bool parseRequestOptions(const std::vector<std::string>& args, CertificateReq& req, long* days) {
  const std::pair<const char*, std::string*> kFields[] = {
      {"--country", &req.subject.country},  {"--state", &req.subject.state},
      {"--locality", &req.subject.locality}, {"--org", &req.subject.organization},
      {"--unit", &req.subject.organizationalUnit}, {"--cn", &req.subject.commonName},
      {"--email", &req.subject.email}};
  for (size_t i = 0; i < args.size(); ++i) {
    if (i + 1 >= args.size()) {
      usageError("option " + args[i] + " needs a value");
      return false;
    }
    const std::string& value = args[i + 1];
    bool known = false;
    for (const auto& f : kFields) {
      if (args[i] == f.first) {
        *f.second = value;
        known = true;
      }
    }
    if (!known && days && args[i] == "--days") {
      if (!parseInt(value, 1, 36500, days)) {
        usageError("--days takes a number of days from 1 to 36500");
        return false;
      }
      known = true;
    }
    if (!known) {
      usageError("unknown option " + args[i] + " (the key password is read from the terminal or standard input)");
      return false;
    }
    ++i;
  }
  return true;
}

// Reads the key password and hands the request to the library.
bool prepareRequest(COpenSSLCertificate& cert, CertificateReq& req) {
  SecretLine password;
  if (!readNewSecret("Key password (empty: key kept in clear): ", "Retype key password: ", password)) return false;
  req.password = password.text;
  cert.setCertificateReq(req);
  // The library keeps its own copy.
  OxBase::SecureWipe(req.password);
  return true;
}

void certificateRows(COpenSSLCertificate& cert, Rows& rows) {
  CertificateInfo info;
  const int rc = cert.getCertInfo(info);
  if (rc != 0) {
    rows.emplace_back("certificate", rc == 517 ? "none" : "unreadable (result " + std::to_string(rc) + ")");
    return;
  }
  rows.emplace_back("subject", nameText(info.subject));
  rows.emplace_back("issuer", nameText(info.issuer));
  rows.emplace_back("serial", info.serial);
  rows.emplace_back("valid from", info.notBefore);
  rows.emplace_back("valid until", info.notAfter);
  rows.emplace_back("file", cert.getCertFliePath());
}

void printRows(const Rows& rows) {
  if (jsonOutput()) {
    oxcfg::printRows("", rows);
    return;
  }
  size_t width = 0;
  for (const auto& r : rows) width = std::max(width, r.first.size());
  for (const auto& r : rows) std::printf("  %-*s  %s\n", static_cast<int>(width), r.first.c_str(), r.second.c_str());
}

RegisterShow g_show({"cert", "Web server certificate", [](Rows& rows) {
                       auto cert = OX_ConfigMgr_GetOpenSSLCert();
                       if (!cert) return false;
                       certificateRows(*cert, rows);
                       return true;
                     }});

RegisterCommand g_req({"cert req", kSubjectUsage,
                       "makes a new key and certificate request (nginx/conf/certreq.pem); the key password is "
                       "read from the terminal or standard input",
                       [](const std::vector<std::string>& args) {
                         CertificateReq req;
                         if (!parseRequestOptions(args, req, nullptr)) return 2;
                         auto cert = certificates();
                         if (!cert) return 1;
                         if (!prepareRequest(*cert, req)) return 2;
                         const int rc = cert->generateReq();
                         return reportResult("cert req", rc, meaning(rc));
                       }});

RegisterCommand g_selfsign({"cert selfsign", std::string("[--days N] ") + kSubjectUsage,
                            "makes a new key and a self-signed certificate valid for N days (default 365); the "
                            "key password is read from the terminal or standard input",
                            [](const std::vector<std::string>& args) {
                              CertificateReq req;
                              long days = 365;
                              if (!parseRequestOptions(args, req, &days)) return 2;
                              req.validity = static_cast<int32_t>(days);
                              auto cert = certificates();
                              if (!cert) return 1;
                              if (!prepareRequest(*cert, req)) return 2;
                              const int rc = cert->generateSelfCert();
                              return reportResult("cert selfsign", rc, meaning(rc));
                            }});

RegisterCommand g_show_cmd({"cert show", "[--req]",
                            "shows the certificate (subject, issuer, serial, validity in local time), or with "
                            "--req the certificate request",
                            [](const std::vector<std::string>& args) {
                              if (args.size() > 1 || (args.size() == 1 && args[0] != "--req")) {
                                return usageError("cert show takes only --req");
                              }
                              auto cert = certificates();
                              if (!cert) return 1;
                              Rows rows;
                              if (args.empty()) {
                                CertificateInfo info;
                                const int rc = cert->getCertInfo(info);
                                if (rc != 0) return reportResult("cert show", rc, meaning(rc));
                                certificateRows(*cert, rows);
                              } else {
                                CertificateReq req;
                                const int rc = cert->getCertReq(req);
                                if (rc != 0) return reportResult("cert show --req", rc, meaning(rc));
                                rows.emplace_back("subject", nameText(req.subject));
                                rows.emplace_back("key bits", std::to_string(req.keyBits));
                                rows.emplace_back("file", cert->getCertReqPath());
                              }
                              printRows(rows);
                              return 0;
                            }});

RegisterCommand g_upload({"cert upload", "FILE",
                          "installs a PEM certificate (at most 32768 bytes) when there is none",
                          [](const std::vector<std::string>& args) {
                            if (args.size() != 1) return usageError("cert upload takes one FILE");
                            std::string data;
                            // One byte over the limit is read so that the library sees and refuses it.
                            if (!OxBase::ReadWholeFile(args[0], &data, kMaxCertificate + 1)) {
                              std::fprintf(stderr, "oxcfg: cannot read %s (or larger than %zu bytes)\n",
                                           args[0].c_str(), kMaxCertificate);
                              return 1;
                            }
                            auto cert = certificates();
                            if (!cert) return 1;
                            std::vector<char> bytes(data.begin(), data.end());
                            bytes.push_back('\0');
                            const int rc = cert->uploadCert(bytes.data(), static_cast<int>(data.size()));
                            return reportResult("cert upload", rc, meaning(rc));
                          }});

RegisterCommand g_download({"cert download-req", "FILE|-",
                            "writes the certificate request to FILE (or standard output)",
                            [](const std::vector<std::string>& args) {
                              if (args.size() != 1) return usageError("cert download-req takes one FILE or -");
                              auto cert = certificates();
                              if (!cert) return 1;
                              std::vector<char> buffer(kMaxCertificate);
                              long length = 0;
                              const int rc = cert->downCertReq(buffer.data(), length);
                              if (rc != 0) return reportResult("cert download-req", rc, meaning(rc));
                              const size_t size = static_cast<size_t>(length);
                              if (args[0] == "-" && jsonOutput()) {
                                std::printf("{\"request\": %s}\n", jsonString(std::string(buffer.data(), size)).c_str());
                                return 0;
                              }
                              if (args[0] == "-") {
                                std::fwrite(buffer.data(), 1, size, stdout);
                                return 0;
                              }
                              if (!OxBase::WriteFileAtomic(args[0], buffer.data(), size).landed()) {
                                std::fprintf(stderr, "oxcfg: cannot write %s\n", args[0].c_str());
                                return 1;
                              }
                              return reportResult("cert download-req", 0);
                            }});

RegisterCommand g_delete({"cert delete", "[--req]", "deletes the certificate (with --req: the certificate request)",
                          [](const std::vector<std::string>& args) {
                            if (args.size() > 1 || (args.size() == 1 && args[0] != "--req")) {
                              return usageError("cert delete takes only --req");
                            }
                            auto cert = certificates();
                            if (!cert) return 1;
                            const bool request = !args.empty();
                            const int rc = request ? cert->deleteCertReq() : cert->deleteCertFile();
                            return reportResult(request ? "cert delete --req" : "cert delete", rc, meaning(rc));
                          }});

}  // namespace
}  // namespace oxcfg
