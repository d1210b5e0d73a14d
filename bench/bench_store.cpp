// The cost of one read-modify-write of "Config.xml" through the store, against
// the floor of a bare pugixml load, change and durable save; and the cost of
// a getter call on a handle.
#include <benchmark/benchmark.h>
#include <fcntl.h>
#include <unistd.h>

#include <oxconfigmgr/OxConfigMgr.h>

#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <pugixml.hpp>
#include <sstream>
#include <string>

#include "frame/config_store.h"
#include "frame/config_txn.h"

namespace {

// A fresh working directory holding the factory "Config.xml".
struct BenchDir {
  std::string dir;
  BenchDir() {
    char tmpl[] = "/tmp/oxcfg-bench-XXXXXX";
    dir = ::mkdtemp(tmpl);
    std::ifstream in(std::string(OXCFG_FACTORY_DIR) + "/Config.xml");
    std::stringstream ss;
    ss << in.rdbuf();
    std::ofstream(dir + "/Config.xml") << ss.str();
    if (::chdir(dir.c_str()) != 0) std::abort();
  }
  ~BenchDir() {
    std::string cmd = dir + "/Config.xml";
    ::unlink(cmd.c_str());
    ::unlink((dir + "/.Config.xml.lock").c_str());
    ::rmdir(dir.c_str());
  }
};

void BM_StoreReadModifyWrite(benchmark::State& state) {
  BenchDir d;
  int port = 1000;
  for (auto _ : state) {
    OxConfigMgr::ConfigFileTxn txn(OxConfigMgr::getConfigFilePath());
    OxBase::CXmlBase xml;
    if (OxConfigMgr::readConfigFile(xml) != 1) state.SkipWithError("read");
    OxConfigMgr::xmlWalk(xml, {"Config", "Network", "HTTP"});
    xml.IntoElem();
    xml.ModifyData("Port", std::to_string(++port).c_str());
    if (OxConfigMgr::writeConfigFile(xml) != 1) state.SkipWithError("write");
  }
}
BENCHMARK(BM_StoreReadModifyWrite)->Unit(benchmark::kMicrosecond);

struct StringWriter : pugi::xml_writer {
  std::string out;
  void write(const void* data, size_t size) override { out.append(static_cast<const char*>(data), size); }
};

// The floor: pugixml load, one change, serialise, write a temporary file,
// fsync, rename, fsync the directory.
void BM_PugixmlFloor(benchmark::State& state) {
  BenchDir d;
  const std::string path = d.dir + "/Config.xml", temp = d.dir + "/.Config.xml.tmp";
  int port = 1000;
  for (auto _ : state) {
    pugi::xml_document doc;
    doc.load_file(path.c_str());
    doc.child("Config").child("Network").child("HTTP").child("Port").text().set(++port);
    StringWriter w;
    doc.save(w, "\t");
    int fd = ::open(temp.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
    if (::write(fd, w.out.data(), w.out.size()) != static_cast<ssize_t>(w.out.size())) state.SkipWithError("w");
    ::fsync(fd);
    ::close(fd);
    ::rename(temp.c_str(), path.c_str());
    int dfd = ::open(d.dir.c_str(), O_RDONLY | O_DIRECTORY);
    ::fsync(dfd);
    ::close(dfd);
  }
}
BENCHMARK(BM_PugixmlFloor)->Unit(benchmark::kMicrosecond);

void BM_GetterOnHandle(benchmark::State& state) {
  BenchDir d;
  OX_ConfigMgr_Start();
  for (auto _ : state) {
    auto h = OX_ConfigMgr_GetSecurityStatus();
    benchmark::DoNotOptimize(h.get());
  }
}
BENCHMARK(BM_GetterOnHandle);

}  // namespace
