// The cost of the getters of the section objects and of the network object,
// answered from memory on a started library; each pair of runs measures one
// getter alone and then with a setter thread changing the same object.
#include <benchmark/benchmark.h>
#include <unistd.h>

#include <oxconfigmgr/OxConfigMgr.h>

#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <memory>
#include <sstream>
#include <string>

namespace {

// Starts the library once, in a fresh directory laid out from the factory
// defaults.
bool startedLibrary() {
  static const bool started = [] {
    char tmpl[] = "/tmp/oxcfg-bench-getters-XXXXXX";
    const char* dir = ::mkdtemp(tmpl);
    if (!dir) return false;
    for (const char* name : {"Config.xml", "PrivateConfig.xml", "QAPIConfig.xml", "ARCConfig.xml",
                             "ConvertCodeConfig.xml"}) {
      std::ifstream in(std::string(OXCFG_FACTORY_DIR) + "/" + name);
      std::stringstream ss;
      ss << in.rdbuf();
      std::ofstream(std::string(dir) + "/" + name) << ss.str();
    }
    if (::chdir(dir) != 0) return false;
    return OX_ConfigMgr_Start() == 1;
  }();
  return started;
}

#define OXCFG_REQUIRE_START(state)                         \
  if (!startedLibrary()) {                                  \
    state.SkipWithError("library did not start");          \
    return;                                                 \
  }

void BM_BasicProductName(benchmark::State& state) {
  OXCFG_REQUIRE_START(state);
  auto basic = OX_ConfigMgr_GetBasicCfg();
  for (auto _ : state) benchmark::DoNotOptimize(basic->getProductName());
}
BENCHMARK(BM_BasicProductName);

void BM_HttpHostInfo(benchmark::State& state) {
  OXCFG_REQUIRE_START(state);
  auto host = OX_ConfigMgr_GetHttpHostCfg();
  OxConfigMgr::tagHttpHostInfo info;
  for (auto _ : state) {
    host->getHttpHostInfo(info);
    benchmark::DoNotOptimize(info);
  }
}
BENCHMARK(BM_HttpHostInfo);

void BM_AlarmMonitorCfg(benchmark::State& state) {
  OXCFG_REQUIRE_START(state);
  auto alarm = OX_ConfigMgr_GetAlarmMonitorCfg();
  OxConfigMgr::tagAlarmMonitorCnf cfg;
  for (auto _ : state) {
    alarm->getAlarmMonitorCfg(cfg);
    benchmark::DoNotOptimize(cfg);
  }
}
BENCHMARK(BM_AlarmMonitorCfg);

void BM_EventSubSwitch(benchmark::State& state) {
  OXCFG_REQUIRE_START(state);
  auto events = OX_ConfigMgr_GetEventSubCfg();
  int value = 0;
  for (auto _ : state) {
    events->getSubCfg(value);
    benchmark::DoNotOptimize(value);
  }
}
BENCHMARK(BM_EventSubSwitch);

void BM_DeviceMgmtChecked(benchmark::State& state) {
  OXCFG_REQUIRE_START(state);
  auto mgmt = OX_ConfigMgr_GetDeviceMgmtCfg();
  std::string kind;
  for (auto _ : state) {
    mgmt->getChecked(kind);
    benchmark::DoNotOptimize(kind);
  }
}
BENCHMARK(BM_DeviceMgmtChecked);

void BM_NetworkHttpPort(benchmark::State& state) {
  OXCFG_REQUIRE_START(state);
  auto net = OX_ConfigMgr_GetNetworkCfg();
  for (auto _ : state) benchmark::DoNotOptimize(net->getHttpPort());
}
BENCHMARK(BM_NetworkHttpPort);

void BM_NetworkGatewayInterIP(benchmark::State& state) {
  OXCFG_REQUIRE_START(state);
  auto net = OX_ConfigMgr_GetNetworkCfg();
  for (auto _ : state) benchmark::DoNotOptimize(net->getGatewayInterIP());
}
BENCHMARK(BM_NetworkGatewayInterIP);

void BM_NetworkIPv4ByProtocol(benchmark::State& state) {
  OXCFG_REQUIRE_START(state);
  auto net = OX_ConfigMgr_GetNetworkCfg();
  _NIC_INFO_V4 entry;
  for (auto _ : state) {
    net->getIPv4ByProtocol(entry, OxConfigMgr::PROTOCOL_LUMEN);
    benchmark::DoNotOptimize(entry);
  }
}
BENCHMARK(BM_NetworkIPv4ByProtocol);

// Readers on several threads at once: getters must not serialise readers.
void BM_HttpHostInfoThreads(benchmark::State& state) {
  OXCFG_REQUIRE_START(state);
  auto host = OX_ConfigMgr_GetHttpHostCfg();
  OxConfigMgr::tagHttpHostInfo info;
  for (auto _ : state) {
    host->getHttpHostInfo(info);
    benchmark::DoNotOptimize(info);
  }
}
BENCHMARK(BM_HttpHostInfoThreads)->Threads(2);

void BM_AlarmMonitorCfgThreads(benchmark::State& state) {
  OXCFG_REQUIRE_START(state);
  auto alarm = OX_ConfigMgr_GetAlarmMonitorCfg();
  OxConfigMgr::tagAlarmMonitorCnf cfg;
  for (auto _ : state) {
    alarm->getAlarmMonitorCfg(cfg);
    benchmark::DoNotOptimize(cfg);
  }
}
BENCHMARK(BM_AlarmMonitorCfgThreads)->Threads(2);

// The longest URL the record holds: every word of the record is copied.
// Registered last: it leaves the long URL in place.
void BM_HttpHostInfoLongUrl(benchmark::State& state) {
  OXCFG_REQUIRE_START(state);
  auto host = OX_ConfigMgr_GetHttpHostCfg();
  OxConfigMgr::tagHttpHostInfo info;
  host->getHttpHostInfo(info);
  std::string url = "http://203.0.113.5/";
  url.resize(2048, 'u');
  std::snprintf(info.url, sizeof info.url, "%s", url.c_str());
  if (host->setHttpHostInfo(info) != 0) {
    state.SkipWithError("setHttpHostInfo failed");
    return;
  }
  for (auto _ : state) {
    host->getHttpHostInfo(info);
    benchmark::DoNotOptimize(info);
  }
}
BENCHMARK(BM_HttpHostInfoLongUrl);

}  // namespace
