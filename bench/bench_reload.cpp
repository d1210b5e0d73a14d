// Live reload: how soon a value that another process sets is answered here,
// and what live reload costs the getters.
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdint>
#include <cstdio>
#include <string>
#include <thread>
#include <vector>

#include "bench_library.h"
#include "core/live_reload.h"

namespace {

int64_t nowNanos() {
  return std::chrono::duration_cast<std::chrono::nanoseconds>(
             std::chrono::steady_clock::now().time_since_epoch())
      .count();
}

using oxbench::startedLibrary;

bool readAll(int fd, void* data, size_t len) {
  char* p = static_cast<char*>(data);
  while (len > 0) {
    const ssize_t n = ::read(fd, p, len);
    if (n <= 0) return false;
    p += n;
    len -= static_cast<size_t>(n);
  }
  return true;
}

// Process B: a copy of this process made before live reload is switched
// on. For each port it reads, it calls the setter and answers the moment the
// setter returned (steady clock, shared by both processes).
void runWriter(int in, int out) {
  auto net = OX_ConfigMgr_GetNetworkCfg();
  uint16_t port = 0;
  while (readAll(in, &port, sizeof port)) {
    const uint32_t rc = net->setExtHttpPort(port);
    const int64_t returned = rc == 0 ? nowNanos() : -1;
    if (::write(out, &returned, sizeof returned) != sizeof returned) break;
  }
  ::_exit(0);
}

// Time from B's setter returning to A's getter answering the new value, over
// 1,000 changes: median and 99th percentile in milliseconds.
void BM_ReloadLatency(benchmark::State& state) {
  if (!startedLibrary()) {
    state.SkipWithError("library did not start");
    return;
  }
  OX_ConfigMgr_EnableLiveReload(0);
  int toB[2], fromB[2];
  if (::pipe(toB) != 0 || ::pipe(fromB) != 0) {
    state.SkipWithError("pipe");
    return;
  }
  const pid_t pid = ::fork();
  if (pid == 0) {
    ::close(toB[1]);
    ::close(fromB[0]);
    runWriter(toB[0], fromB[1]);
  }
  ::close(toB[0]);
  ::close(fromB[1]);
  OX_ConfigMgr_EnableLiveReload(1);
  auto net = OX_ConfigMgr_GetNetworkCfg();
  std::vector<double> millis;
  int failures = 0;
  for (auto _ : state) {
    millis.clear();
    for (int i = 0; i < 1000; ++i) {
      const uint16_t port = static_cast<uint16_t>(20000 + (i % 2 == 0 ? i : 40000 - i));
      int64_t returned = 0;
      if (::write(toB[1], &port, sizeof port) != sizeof port || !readAll(fromB[0], &returned, sizeof returned) ||
          returned < 0) {
        ++failures;
        continue;
      }
      const int64_t deadline = returned + 2'000'000'000;
      while (net->getExtHttpPort() != port && nowNanos() < deadline) {
        std::this_thread::sleep_for(std::chrono::microseconds(20));
      }
      const int64_t seen = nowNanos();
      if (net->getExtHttpPort() != port) {
        ++failures;
        continue;
      }
      millis.push_back(static_cast<double>(std::max<int64_t>(0, seen - returned)) / 1e6);
    }
  }
  ::close(toB[1]);
  ::close(fromB[0]);
  ::waitpid(pid, nullptr, 0);
  OX_ConfigMgr_EnableLiveReload(0);
  std::sort(millis.begin(), millis.end());
  if (millis.empty()) {
    state.SkipWithError("no change was seen");
    return;
  }
  state.counters["median_ms"] = millis[millis.size() / 2];
  state.counters["p99_ms"] = millis[std::min(millis.size() - 1, millis.size() * 99 / 100)];
  state.counters["max_ms"] = millis.back();
  state.counters["changes"] = static_cast<double>(millis.size());
  state.counters["failures"] = failures;
}
BENCHMARK(BM_ReloadLatency)->Iterations(1)->Unit(benchmark::kMillisecond)->UseRealTime();

// One reload of a file as the watch thread runs it: the parse check and
// every object of the file's rows (the part of the latency above that is
// not waiting for the burst to end).
void BM_ReloadFile(benchmark::State& state, const char* file) {
  if (!startedLibrary()) {
    state.SkipWithError("library did not start");
    return;
  }
  for (auto _ : state) benchmark::DoNotOptimize(OxConfigMgr::LiveReload::Instance().reloadFile(file));
}
BENCHMARK_CAPTURE(BM_ReloadFile, Config, "Config.xml")->Unit(benchmark::kMicrosecond);
BENCHMARK_CAPTURE(BM_ReloadFile, QAPIConfig, "QAPIConfig.xml")->Unit(benchmark::kMicrosecond);
BENCHMARK_CAPTURE(BM_ReloadFile, PrivateConfig, "PrivateConfig.xml")->Unit(benchmark::kMicrosecond);

// The getters with live reload off and on, in one run: one of every
// reloaded object. Each out-record lives across the loop, as a host's would.
template <class Obtain, class Get>
void registerOffAndOn(const std::string& name, Obtain obtain, Get get) {
  for (const bool live : {false, true}) {
    benchmark::RegisterBenchmark((std::string(live ? "BM_ReloadOn_" : "BM_ReloadOff_") + name).c_str(),
                                 [=](benchmark::State& state) {
                                   OX_ConfigMgr_EnableLiveReload(live ? 1 : 0);
                                   oxbench::runGetter(state, obtain, get);
                                   OX_ConfigMgr_EnableLiveReload(0);
                                 });
  }
}

const bool g_registered = [] {
  using namespace OxConfigMgr;
  registerOffAndOn("ExtHttpPort", OX_ConfigMgr_GetNetworkCfg,
                   [](CNetworkCfg& o) { benchmark::DoNotOptimize(o.getExtHttpPort()); });
  registerOffAndOn("HttpHostInfo", OX_ConfigMgr_GetHttpHostCfg, [info = tagHttpHostInfo()](CHttpHostCfg& o) mutable {
    o.getHttpHostInfo(info);
    benchmark::DoNotOptimize(info);
  });
  registerOffAndOn("GatewayOuterIP", OX_ConfigMgr_GetNetworkCfg,
                   [](CNetworkCfg& o) { benchmark::DoNotOptimize(o.getGatewayOuterIP()); });
  registerOffAndOn("DeviceMgmtChecked", OX_ConfigMgr_GetDeviceMgmtCfg, [kind = std::string()](CDeviceMgmtCfg& o) mutable {
    o.getChecked(kind);
    benchmark::DoNotOptimize(kind);
  });
  registerOffAndOn("LogLevel", OX_ConfigMgr_GetLogCfg,
                   [](CMaintain& o) { benchmark::DoNotOptimize(o.getLogLevel()); });
  registerOffAndOn("NATMinHTTPPort", OX_ConfigMgr_GetNATGateway,
                   [](CNATGateway& o) { benchmark::DoNotOptimize(o.getMinHTTPPort()); });
  registerOffAndOn("PrivateLDMParams", OX_ConfigMgr_GetPrivateCfg, [ldm = tagLDMInfo()](CPrivateCfg& o) mutable {
    o.getLDMParams(ldm);
    benchmark::DoNotOptimize(ldm);
  });
  return true;
}();

}  // namespace
