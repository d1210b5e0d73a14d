// The alarm-receiving-centre paths a gateway service takes: converting an
// event code as alarms arrive, listing a page for the web interface, loading
// the tables and the record, and replacing a table or the record on disk.
#include <benchmark/benchmark.h>
#include <unistd.h>

#include <oxconfigmgr/OxConfigMgr.h>

#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <map>
#include <sstream>
#include <string>
#include <vector>

namespace {

using namespace OxConfigMgr;

// A fresh working directory with the factory files of the area; with `rows`
// non-zero the Sur-Gard table holds that many generated rows instead.
struct BenchDir {
  std::string dir;
  explicit BenchDir(int rows = 0) {
    char tmpl[] = "/tmp/oxcfg-bench-arc-XXXXXX";
    dir = ::mkdtemp(tmpl);
    for (const char* name : {"ARCConfig.xml", "ConvertCodeConfig.xml"}) {
      std::ifstream in(std::string(OXCFG_FACTORY_DIR) + "/" + name);
      std::stringstream ss;
      ss << in.rdbuf();
      std::ofstream(dir + "/" + name) << ss.str();
    }
    if (rows > 0) {
      std::string text = "<ConvertCodeConfig><NyxCodeToSGConfig><CodeList>";
      for (int i = 0; i < rows; ++i) {
        text += "<Code NyxCode=\"EVENT_" + std::to_string(i) + "\"><EventDesc>Generated event " +
                std::to_string(i) + "</EventDesc><CID>1" + std::to_string(100 + i % 900) + "</CID><SIA>BA</SIA></Code>";
      }
      text += "</CodeList></NyxCodeToSGConfig><PollEventToCIDConfig><CodeList/></PollEventToCIDConfig></ConvertCodeConfig>";
      std::ofstream(dir + "/ConvertCodeConfig.xml") << text;
    }
    if (::chdir(dir.c_str()) != 0) std::abort();
  }
  ~BenchDir() {
    for (const char* name : {"ARCConfig.xml", "ConvertCodeConfig.xml", ".ARCConfig.xml.lock", ".ConvertCodeConfig.xml.lock"}) {
      std::remove((dir + "/" + name).c_str());
    }
    ::rmdir(dir.c_str());
  }
};

void BM_ConvertCode(benchmark::State& state) {
  BenchDir d;
  CConvertCodeCfg codes;
  if (!codes.loadFile()) state.SkipWithError("load");
  const EventFormat format = static_cast<EventFormat>(state.range(0));
  const std::string code = format == EVENT_FORMAT_POLL_CID ? "DEV_OFFLINE" : "ZONE_BURGLARY_ALARM";
  std::string out;
  for (auto _ : state) {
    benchmark::DoNotOptimize(codes.convertCode(format, code, out));
  }
}
BENCHMARK(BM_ConvertCode)->Arg(EVENT_FORMAT_CID)->Arg(EVENT_FORMAT_SIA)->Arg(EVENT_FORMAT_POLL_CID);

void BM_ListPage(benchmark::State& state) {
  BenchDir d(static_cast<int>(state.range(0)));
  CConvertCodeCfg codes;
  if (!codes.loadFile()) state.SkipWithError("load");
  tagEventCodeQueryReq req;
  req.position = static_cast<int32_t>(state.range(0) / 2);
  req.maxResults = 20;
  for (auto _ : state) {
    std::vector<tagEventCode> list;
    int count = 0, total = 0;
    codes.getSGEventCodeList(list, count, total, &req);
    benchmark::DoNotOptimize(list.data());
  }
}
BENCHMARK(BM_ListPage)->Arg(39)->Arg(10000)->Unit(benchmark::kMicrosecond);

void BM_LoadCodes(benchmark::State& state) {
  BenchDir d(static_cast<int>(state.range(0)));
  for (auto _ : state) {
    CConvertCodeCfg codes;
    if (!codes.loadFile()) state.SkipWithError("load");
  }
}
BENCHMARK(BM_LoadCodes)->Arg(0)->Arg(10000)->Unit(benchmark::kMicrosecond);

// A durable rewrite of one section (fsync of file and directory included).
void BM_UpdateCodes(benchmark::State& state) {
  BenchDir d(static_cast<int>(state.range(0)));
  CConvertCodeCfg codes;
  if (!codes.loadFile()) state.SkipWithError("load");
  std::map<std::string, tagConvertSGInfo> table;
  codes.getSGEventCodeMap(PROTOCOL_TYPE_SG, table);
  for (auto _ : state) {
    if (codes.updateSGEventCode(PROTOCOL_TYPE_SG, table) != 0) state.SkipWithError("update");
  }
}
BENCHMARK(BM_UpdateCodes)->Arg(0)->Arg(10000)->Unit(benchmark::kMicrosecond);

void BM_LoadArc(benchmark::State& state) {
  BenchDir d;
  for (auto _ : state) {
    CARCCfg arc;
    if (!arc.loadFile()) state.SkipWithError("load");
  }
}
BENCHMARK(BM_LoadArc)->Unit(benchmark::kMicrosecond);

void BM_SetArcParam(benchmark::State& state) {
  BenchDir d;
  CARCCfg arc;
  if (!arc.loadFile()) state.SkipWithError("load");
  tagArcCnf cfg;
  arc.getARCParam(cfg);
  for (auto _ : state) {
    cfg.sg.sgPort = cfg.sg.sgPort == 1025 ? 1026 : 1025;
    if (arc.setARCParam(cfg) != 0) state.SkipWithError("set");
  }
}
BENCHMARK(BM_SetArcParam)->Unit(benchmark::kMicrosecond);

}  // namespace
