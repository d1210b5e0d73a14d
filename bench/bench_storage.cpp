// Picture uploads per second through CNetworkCfg::uploadFacetoPss, against
// the floor of a bare libcurl loop sending the same signed PUT on one reused
// connection, both to the same storage peer (tests/peer, on 127.0.0.2) in
// the same run. The goal is at least 0.9 times the bare loop: the cached
// client must keep its connection open between uploads.
#include <benchmark/benchmark.h>
#include <unistd.h>

#include <oxconfigmgr/OxConfigMgr.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <memory>
#include <sstream>
#include <string>

#include "network/network_internal.h"
#include "platform/env.h"
#include "support/s3_peer.h"

namespace {

constexpr char kFacePath[] = "/QAPI/Intelligent/FDLib/pictureUpload";

std::string readAll(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  std::stringstream ss;
  ss << in.rdbuf();
  return ss.str();
}

// Lumen on 127.0.0.2 only, whatever the machine's adapters are.
class LoopbackAdapterEnv : public OxBase::EnvWrapper {
 public:
  LoopbackAdapterEnv() : EnvWrapper(OxBase::Env::Default()) {}
  int GetAdapters(std::vector<OxBase::AdapterAddress>* out) override {
    *out = {OxBase::AdapterAddress{"lo", "lo", {"127.0.0.2"}}};
    return 0;
  }
};

// A factory directory whose upload port is the peer's, a network object
// started there, this process's storage keys, and the peer holding them.
struct StorageRig {
  std::string dir;
  std::string error;
  std::string origin;
  std::string accessKey, secretKey;
  LoopbackAdapterEnv env;
  std::unique_ptr<OxConfigMgr::CNetworkCfg> net;
  s3test::S3Peer peer;

  StorageRig() {
    char tmpl[] = "/tmp/oxcfg-bench-storage-XXXXXX";
    dir = ::mkdtemp(tmpl);
    const std::string why = s3test::S3Peer::unavailableReason();
    if (!why.empty()) {
      error = why;
      return;
    }
    const uint16_t port = s3test::freePort("127.0.0.2");
    for (const auto& e : std::filesystem::directory_iterator(OXCFG_FACTORY_DIR)) {
      if (e.path().filename() == "README.md" || !e.is_regular_file()) continue;
      std::string text = readAll(e.path().string());
      if (e.path().filename() == "Config.xml") {
        const std::string from = "<Port>6011</Port>";
        text.replace(text.find(from), from.size(), "<Port>" + std::to_string(port) + "</Port>");
      }
      std::ofstream(dir + "/" + e.path().filename().string(), std::ios::binary) << text;
    }
    if (::chdir(dir.c_str()) != 0) {
      error = "chdir";
      return;
    }
    OxBase::Env::Install(&env);
    // The keys are the process's own, made by the first start (here or by
    // another benchmark of this process).
    if (OX_ConfigMgr_Start() != 1 || !OX_ConfigMgr_GetStorageConfig()) {
      error = "start failed";
      return;
    }
    OX_ConfigMgr_GetStorageConfig()->getStorageAkSk(accessKey, secretKey);
    OxConfigMgr::netinternal::resetAdapterRefreshForTest();
    net.reset(new OxConfigMgr::CNetworkCfg);
    if (!net->start()) {
      error = "network start failed";
      return;
    }
    if (!peer.start("127.0.0.2", port, accessKey, secretKey, dir + "/peer", &error)) return;
    origin = "http://127.0.0.2:" + std::to_string(port);
  }
  ~StorageRig() {
    net.reset();
    peer.stop();
    OxBase::Env::Install(nullptr);
    std::error_code ec;
    std::filesystem::remove_all(dir, ec);
  }
};

StorageRig& rig() {
  static StorageRig r;
  return r;
}

std::string picture50k() {
  std::string out(50 * 1024, '\0');
  for (size_t i = 0; i < out.size(); ++i) out[i] = static_cast<char>((i * 131 + (i >> 8)) & 0xFF);
  return out;
}

void BM_UploadFacetoPss(benchmark::State& state) {
  StorageRig& r = rig();
  if (!r.error.empty()) return state.SkipWithError(r.error.c_str());
  const std::string picture = picture50k();
  for (auto _ : state) {
    int error = 0;
    std::string url;
    if (!r.net->uploadFacetoPss(error, url, picture, kFacePath)) {
      state.SkipWithError(("upload failed: " + std::to_string(error)).c_str());
      break;
    }
  }
  state.SetItemsProcessed(state.iterations());
  state.SetBytesProcessed(state.iterations() * static_cast<int64_t>(picture.size()));
}
BENCHMARK(BM_UploadFacetoPss)->Unit(benchmark::kMicrosecond)->MinTime(3.0)->UseRealTime();

void BM_BareCurlSignedPut(benchmark::State& state) {
  StorageRig& r = rig();
  if (!r.error.empty()) return state.SkipWithError(r.error.c_str());
  const std::string picture = picture50k();
  s3test::SignedHttp http(r.accessKey, r.secretKey);
  unsigned long n = 0;
  for (auto _ : state) {
    char key[33];
    std::snprintf(key, sizeof key, "%032lx", ++n);
    const s3test::HttpAnswer a = http.request("PUT", r.origin + "/pss/1/" + key + "/123.jpg", picture);
    if (a.curlCode != 0 || a.status != 200) {
      state.SkipWithError(("PUT failed: " + std::to_string(a.status)).c_str());
      break;
    }
  }
  state.SetItemsProcessed(state.iterations());
  state.SetBytesProcessed(state.iterations() * static_cast<int64_t>(picture.size()));
}
BENCHMARK(BM_BareCurlSignedPut)->Unit(benchmark::kMicrosecond)->MinTime(3.0)->UseRealTime();

}  // namespace
