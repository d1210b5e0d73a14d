// Feeds arbitrary root logger lines of "log4cxx.properties" to the rewrite
// that a log level change makes (read, find the level, replace it, write,
// reload the logging configuration). Only the first line of the input is
// used, behind the key, so no input can define an appender that writes
// files outside the private working directory.
#include <unistd.h>

#include <oxconfigmgr/OxConfigMgr.h>

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string>

#include "platform/env.h"
#include "platform/file_util.h"

namespace {

std::string g_dir;

// Durability does not matter to a fuzzer: syncs are skipped, which makes
// every execution many times faster.
class NoSyncEnv : public OxBase::EnvWrapper {
 public:
  NoSyncEnv() : EnvWrapper(OxBase::Env::Default()) {}
  int Fsync(int) override { return 0; }
  int SyncDir(const std::string&) override { return 0; }
};

void removeWorkDir() {
  for (const char* name : {"log4cxx.properties", ".log4cxx.properties.lock"}) ::unlink((g_dir + "/" + name).c_str());
  ::rmdir(g_dir.c_str());
}

bool enterWorkDir() {
  char dir[] = "/tmp/oxcfg-log4j-fuzz-XXXXXX";
  if (!::mkdtemp(dir) || ::chdir(dir) != 0) return false;
  static NoSyncEnv env;
  OxBase::Env::Install(&env);
  g_dir = dir;
  std::atexit(removeWorkDir);
  return true;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  static const bool ready = enterWorkDir();
  if (!ready) std::abort();
  std::string line(reinterpret_cast<const char*>(data), size);
  line = line.substr(0, line.find_first_of("\r\n"));
  std::string text = "# properties\nlog4j.rootLogger=" + line + "\n";
  if (!OxBase::WriteFileAtomic("log4cxx.properties", text).ok()) return 0;
  OxConfigMgr::CMaintain maintain;
  maintain.ModifyLog4j();
  std::string path = "log4cxx.properties";
  std::string content;
  if (!maintain.ReadLog4j(path, content)) std::abort();
  // The rewrite touches the level only: the file keeps its other lines.
  if (content.compare(0, 13, "# properties\n") != 0) std::abort();
  return 0;
}
