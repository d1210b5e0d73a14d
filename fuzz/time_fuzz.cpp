// Feeds arbitrary bytes to the texts the time object reads: a caller's local
// time (checked, then applied), the time service's status and the date
// command's offset answer. The environment is a private one: the zone
// database and the local-time link live in a temporary directory, the clock
// is only recorded and no command is run, so nothing reaches the machine.
#include <sys/stat.h>
#include <unistd.h>

#include <oxconfigmgr/OxTimeCfg.h>

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

#include "fuzz_workdir.h"
#include "platform/env.h"

namespace {

std::string g_dir;
std::string g_statusText;  // the time service's answer
std::string g_dateText;    // the date command's answer

class FuzzEnv : public OxBase::EnvWrapper {
 public:
  FuzzEnv() : EnvWrapper(OxBase::Env::Current()) {}
  std::string ZoneInfoRoot() override { return g_dir + "/zoneinfo/"; }
  std::string LocalTimePath() override { return g_dir + "/etc/localtime"; }
  int SetSystemTime(int64_t) override { return 0; }
  OxBase::CommandResult Run(const std::vector<std::string>& argv, const std::string&,
                            const std::string&) override {
    if (argv.size() == 1 && argv[0] == "timedatectl") return {0, g_statusText};
    if (!argv.empty() && argv[0] == "date") return {0, g_dateText};
    __builtin_trap();  // nothing else may be run
  }
  int Symlink(const std::string& target, const std::string& link) override {
    if (link.compare(0, g_dir.size() + 1, g_dir + "/") != 0) __builtin_trap();
    return EnvWrapper::Symlink(target, link);
  }
  int Rename(const std::string& from, const std::string& to) override {
    if (to.compare(0, g_dir.size() + 1, g_dir + "/") != 0) __builtin_trap();
    return EnvWrapper::Rename(from, to);
  }
};

void touch(const std::string& name) {
  std::string path = g_dir + "/zoneinfo";
  for (size_t pos = 0, slash; (slash = name.find('/', pos)) != std::string::npos; pos = slash + 1) {
    path += "/" + name.substr(pos, slash - pos);
    ::mkdir(path.c_str(), 0755);
  }
  if (FILE* f = std::fopen((g_dir + "/zoneinfo/" + name).c_str(), "wb")) std::fclose(f);
}

bool setUp() {
  g_dir = oxfuzz::enterWorkDir("time", {"etc", "zoneinfo"});
  for (int h = -12; h <= 14; ++h) {
    touch(h < 0 ? "Etc/GMT+" + std::to_string(-h) : h > 0 ? "Etc/GMT-" + std::to_string(h) : "Etc/GMT+0");
  }
  for (const char* z : {"Canada/Newfoundland", "Asia/Tehran", "Asia/Kabul", "Asia/Kolkata",
                        "Asia/Kathmandu", "Asia/Yangon", "Australia/Adelaide"}) {
    touch(z);
  }
  // Over the working directory's environment, whose syncs are no-ops.
  static FuzzEnv env;
  OxBase::Env::Install(&env);
  return true;
}

bool validZoneText(const std::string& zone) { return zone.empty() || zone.compare(0, 3, "CST") == 0; }

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  static const bool ready = setUp();
  if (!ready || size == 0) return 0;
  const std::string text(reinterpret_cast<const char*>(data) + 1, size - 1);
  OxConfigMgr::CTimeCfg cfg;
  switch (data[0] % 3) {
    case 0: {
      const bool valid = cfg.checkLocalTimeFormat(text);
      const int rc = cfg.setLocalTime(text);
      if (valid != (rc != 1)) __builtin_trap();
      if (rc != 0 && rc != 1 && rc != 9 && rc != 274) __builtin_trap();
      break;
    }
    case 1:
      g_statusText = text;
      g_dateText = "+0100\n";
      break;
    default:
      g_statusText = "DST active: no\n";
      g_dateText = text;
      break;
  }
  if (data[0] % 3 != 0) {
    int dst = -1;
    const std::string zone = cfg.getTimeZone(dst);
    if (!validZoneText(zone) || (!zone.empty() && dst != 0 && dst != 1)) __builtin_trap();
    const std::string local = cfg.getLocalTime();
    if (!local.empty() && local.size() != 25) __builtin_trap();
  }
  return 0;
}
