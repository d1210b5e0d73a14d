// The cost of the web server's certificate operations: a new key and
// self-signed certificate (dominated by the 2048-bit RSA key search), the
// inspection the web interface runs on every page view, and one ASN.1 time
// conversion.
#include <benchmark/benchmark.h>
#include <openssl/asn1.h>
#include <unistd.h>

#include <oxconfigmgr/OxOpenSSLCertificate.h>

#include <cstdlib>
#include <string>

namespace {

// A fresh working directory, removed with what the certificate class wrote.
struct CertBenchDir {
  std::string dir;
  CertBenchDir() {
    char tmpl[] = "/tmp/oxcfg-bench-XXXXXX";
    dir = ::mkdtemp(tmpl);
    if (::chdir(dir.c_str()) != 0) std::abort();
  }
  ~CertBenchDir() {
    for (const char* f : {"cert.pem", "cert.key", "key.pass", "certreq.pem"}) {
      ::unlink((dir + "/nginx/conf/" + f).c_str());
    }
    ::rmdir((dir + "/nginx/conf").c_str());
    ::rmdir((dir + "/nginx").c_str());
    ::rmdir(dir.c_str());
  }
};

OxConfigMgr::CertificateReq benchReq(const char* password) {
  OxConfigMgr::CertificateReq req;
  req.validity = 365;
  req.password = password;
  req.subject.country = "DE";
  req.subject.organization = "Example Gateways";
  req.subject.commonName = "gw.example.test";
  return req;
}

void BM_GenerateSelfCert(benchmark::State& state) {
  CertBenchDir d;
  OxConfigMgr::COpenSSLCertificate cert;
  OxConfigMgr::CertificateReq req = benchReq("pw");
  cert.setCertificateReq(req);
  for (auto _ : state) {
    if (cert.generateSelfCert() != 0) state.SkipWithError("generateSelfCert");
    state.PauseTiming();
    cert.deleteCertFile();
    state.ResumeTiming();
  }
}
BENCHMARK(BM_GenerateSelfCert)->Unit(benchmark::kMillisecond)->Iterations(20);

void BM_GetCertInfo(benchmark::State& state) {
  CertBenchDir d;
  OxConfigMgr::COpenSSLCertificate cert;
  OxConfigMgr::CertificateReq req = benchReq("");
  cert.setCertificateReq(req);
  if (cert.generateSelfCert() != 0) state.SkipWithError("generateSelfCert");
  for (auto _ : state) {
    OxConfigMgr::CertificateInfo info;
    if (cert.getCertInfo(info) != 0) state.SkipWithError("getCertInfo");
    benchmark::DoNotOptimize(info);
  }
}
BENCHMARK(BM_GetCertInfo)->Unit(benchmark::kMicrosecond);

void BM_TransferASN1toTime(benchmark::State& state) {
  OxConfigMgr::COpenSSLCertificate cert;
  ASN1_TIME* t = ASN1_TIME_new();
  if (!t || ASN1_TIME_set_string(t, "20260301120000+0130") != 1) state.SkipWithError("ASN1_TIME_set_string");
  for (auto _ : state) {
    int error = 0;
    benchmark::DoNotOptimize(cert.transferASN1toTime(t, &error));
    if (error != 0) state.SkipWithError("transferASN1toTime");
  }
  ASN1_TIME_free(t);
}
BENCHMARK(BM_TransferASN1toTime);

}  // namespace
