// The cost of the getters of the section objects and of the network object,
// answered from memory on a started library, on one thread and, for the
// records, on two at once.
#include <cstdio>
#include <memory>
#include <string>

#include "bench_library.h"

namespace {

using oxbench::runGetter;
using oxbench::startedLibrary;

void BM_BasicProductName(benchmark::State& state) {
  runGetter(state, OX_ConfigMgr_GetBasicCfg,
            [](OxConfigMgr::CBasicCfg& o) { benchmark::DoNotOptimize(o.getProductName()); });
}
BENCHMARK(BM_BasicProductName);

void httpHostInfo(benchmark::State& state) {
  OxConfigMgr::tagHttpHostInfo info;
  runGetter(state, OX_ConfigMgr_GetHttpHostCfg, [&info](OxConfigMgr::CHttpHostCfg& o) {
    o.getHttpHostInfo(info);
    benchmark::DoNotOptimize(info);
  });
}
void alarmMonitorCfg(benchmark::State& state) {
  OxConfigMgr::tagAlarmMonitorCnf cfg;
  runGetter(state, OX_ConfigMgr_GetAlarmMonitorCfg, [&cfg](OxConfigMgr::CAlarmMonitorCfg& o) {
    o.getAlarmMonitorCfg(cfg);
    benchmark::DoNotOptimize(cfg);
  });
}
BENCHMARK(httpHostInfo)->Name("BM_HttpHostInfo");
BENCHMARK(alarmMonitorCfg)->Name("BM_AlarmMonitorCfg");
// Readers on several threads at once: getters must not serialise readers.
BENCHMARK(httpHostInfo)->Name("BM_HttpHostInfoThreads")->Threads(2);
BENCHMARK(alarmMonitorCfg)->Name("BM_AlarmMonitorCfgThreads")->Threads(2);

void BM_EventSubSwitch(benchmark::State& state) {
  runGetter(state, OX_ConfigMgr_GetEventSubCfg, [](OxConfigMgr::CEventSubCfg& o) {
    int value = 0;
    o.getSubCfg(value);
    benchmark::DoNotOptimize(value);
  });
}
BENCHMARK(BM_EventSubSwitch);

void BM_DeviceMgmtChecked(benchmark::State& state) {
  std::string kind;
  runGetter(state, OX_ConfigMgr_GetDeviceMgmtCfg, [&kind](OxConfigMgr::CDeviceMgmtCfg& o) {
    o.getChecked(kind);
    benchmark::DoNotOptimize(kind);
  });
}
BENCHMARK(BM_DeviceMgmtChecked);

void BM_NetworkHttpPort(benchmark::State& state) {
  runGetter(state, OX_ConfigMgr_GetNetworkCfg,
            [](OxConfigMgr::CNetworkCfg& o) { benchmark::DoNotOptimize(o.getHttpPort()); });
}
BENCHMARK(BM_NetworkHttpPort);

void BM_NetworkGatewayInterIP(benchmark::State& state) {
  runGetter(state, OX_ConfigMgr_GetNetworkCfg,
            [](OxConfigMgr::CNetworkCfg& o) { benchmark::DoNotOptimize(o.getGatewayInterIP()); });
}
BENCHMARK(BM_NetworkGatewayInterIP);

void BM_NetworkIPv4ByProtocol(benchmark::State& state) {
  _NIC_INFO_V4 entry;
  runGetter(state, OX_ConfigMgr_GetNetworkCfg, [&entry](OxConfigMgr::CNetworkCfg& o) {
    o.getIPv4ByProtocol(entry, OxConfigMgr::PROTOCOL_LUMEN);
    benchmark::DoNotOptimize(entry);
  });
}
BENCHMARK(BM_NetworkIPv4ByProtocol);

// The longest URL the record holds: every word of the record is copied.
// Registered last: it leaves the long URL in place.
void BM_HttpHostInfoLongUrl(benchmark::State& state) {
  auto host = startedLibrary() ? OX_ConfigMgr_GetHttpHostCfg() : nullptr;
  OxConfigMgr::tagHttpHostInfo info;
  if (host) host->getHttpHostInfo(info);
  std::string url = "http://203.0.113.5/";
  url.resize(2048, 'u');
  std::snprintf(info.url, sizeof info.url, "%s", url.c_str());
  if (!host || host->setHttpHostInfo(info) != 0) {
    state.SkipWithError("setHttpHostInfo failed");
    return;
  }
  httpHostInfo(state);
}
BENCHMARK(BM_HttpHostInfoLongUrl);

}  // namespace
