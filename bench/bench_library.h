// What the getter benchmarks share: the library started once per process, in
// a fresh directory laid out from the factory defaults, and the loop that
// calls one getter on a handle of it.
#ifndef OXCFG_BENCH_BENCH_LIBRARY_H
#define OXCFG_BENCH_BENCH_LIBRARY_H

#include <benchmark/benchmark.h>
#include <stdlib.h>
#include <unistd.h>

#include <oxconfigmgr/OxConfigMgr.h>

#include <fstream>
#include <sstream>
#include <string>

namespace oxbench {

// True once the library runs; started on the first call (inline: one
// library for every benchmark file of the process).
inline bool startedLibrary() {
  static const bool started = [] {
    char tmpl[] = "/tmp/oxcfg-bench-XXXXXX";
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

// Calls `get(*handle)` in the benchmark loop; `handle` comes from `obtain`
// on the started library.
template <class Obtain, class Get>
void runGetter(benchmark::State& state, Obtain obtain, Get get) {
  if (!startedLibrary()) {
    state.SkipWithError("library did not start");
    return;
  }
  auto handle = obtain();
  if (!handle) {
    state.SkipWithError("object not started");
    return;
  }
  for (auto _ : state) get(*handle);
}

}  // namespace oxbench

#endif  // OXCFG_BENCH_BENCH_LIBRARY_H
