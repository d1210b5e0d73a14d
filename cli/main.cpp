// oxcfg: lays out a working directory from the factory defaults, starts the
// library there and reads or changes settings.
#include <dirent.h>
#include <sys/stat.h>
#include <unistd.h>

#include <oxconfigmgr/OxConfigMgr.h>

#include <cstdio>
#include <cstdlib>
#include <algorithm>
#include <cerrno>
#include <cstring>
#include <iostream>
#include <mutex>
#include <string>
#include <vector>

#include "cli/cli.h"
#include "platform/file_util.h"
#include "platform/oxbase.h"
#include "platform/osl.h"
#include "platform/xlog.h"

namespace oxcfg {

std::vector<ShowSection>& showSections() {
  static std::vector<ShowSection> s;
  return s;
}

std::vector<Command>& commands() {
  static std::vector<Command> c;
  return c;
}

int reportResult(const std::string& what, int code, const std::string& meaning) {
  if (code == 0) {
    std::printf("%s: done (result 0)\n", what.c_str());
    return 0;
  }
  std::printf("%s: failed (result %d%s%s)\n", what.c_str(), code, meaning.empty() ? "" : ": ",
              meaning.c_str());
  return 1;
}

bool parseInt(const std::string& text, long min, long max, long* out) {
  if (text.empty()) return false;
  char* end = nullptr;
  errno = 0;
  long v = std::strtol(text.c_str(), &end, 10);
  if (errno != 0 || *end != '\0' || v < min || v > max) return false;
  *out = v;
  return true;
}

namespace {

// Keeps the error messages of the library, so a failed start can show the
// line that names the failing step.
class ErrorCapture : public OxBase::LogSink {
 public:
  void Log(int level, const char*, const std::string& text) override {
    std::lock_guard<std::mutex> lock(mutex_);
    if (level >= 5) errors_.push_back(text);
  }
  std::vector<std::string> errors() {
    std::lock_guard<std::mutex> lock(mutex_);
    return errors_;
  }

 private:
  std::mutex mutex_;
  std::vector<std::string> errors_;
};

ErrorCapture g_errors;

void usage() {
  std::fprintf(stderr,
               "usage: oxcfg init DIR [--force] [--factory FACTORY_DIR]\n"
               "       oxcfg [-C DIR] start\n"
               "       oxcfg [-C DIR] show [SECTION] [--json]\n");
  for (const auto& c : commands()) {
    std::fprintf(stderr, "       oxcfg [-C DIR] %s %s\n           %s\n", c.name.c_str(),
                 c.usage.c_str(), c.help.c_str());
  }
  std::fprintf(stderr, "sections:");
  for (const auto& s : showSections()) std::fprintf(stderr, " %s", s.name.c_str());
  std::fprintf(stderr, "\n");
}

std::string factoryDir(const std::string& given) {
  if (!given.empty()) return given;
  struct stat st;
  if (::stat(OXCFG_FACTORY_DIR "/Config.xml", &st) == 0) return OXCFG_FACTORY_DIR;
  return OXCFG_INSTALLED_FACTORY_DIR;
}

int cmdInit(const std::vector<std::string>& args) {
  std::string dir, factory;
  bool force = false;
  for (size_t i = 0; i < args.size(); ++i) {
    if (args[i] == "--force") force = true;
    else if (args[i] == "--factory" && i + 1 < args.size()) factory = args[++i];
    else if (dir.empty()) dir = args[i];
    else return usage(), 2;
  }
  if (dir.empty()) return usage(), 2;
  factory = factoryDir(factory);
  if (OSL_MakeDir(dir.c_str()) != 0) {
    std::fprintf(stderr, "oxcfg: cannot create %s: %s\n", dir.c_str(), std::strerror(errno));
    return 1;
  }
  const std::string config = dir + "/Config.xml";
  if (!force && OSL_AccessFile(config.c_str(), 0) == 0) {
    std::fprintf(stderr, "oxcfg: %s already holds a configuration (use --force to overwrite)\n",
                 dir.c_str());
    return 1;
  }
  DIR* d = ::opendir(factory.c_str());
  if (!d) {
    std::fprintf(stderr, "oxcfg: cannot read factory defaults in %s\n", factory.c_str());
    return 1;
  }
  int copied = 0, failed = 0;
  while (dirent* e = ::readdir(d)) {
    std::string name = e->d_name;
    if (name == "." || name == ".." || name == "README.md") continue;
    std::string from = factory + "/" + name, to = dir + "/" + name;
    struct stat st;
    if (::stat(from.c_str(), &st) != 0 || !S_ISREG(st.st_mode)) continue;
    std::string data;
    bool secret = name == "PrivateConfig.xml";
    if (!OxBase::ReadWholeFile(from, &data, 64u << 20) ||
        !OxBase::WriteFileAtomic(to, data, secret ? OxBase::FileMode::kSecret : OxBase::FileMode::kKeep).ok()) {
      std::fprintf(stderr, "oxcfg: cannot copy %s: %s\n", name.c_str(), std::strerror(errno));
      ++failed;
    } else {
      ++copied;
    }
  }
  ::closedir(d);
  std::string conf = dir + "/nginx/conf";
  OSL_MakeDir((dir + "/nginx").c_str());
  OSL_MakeDir(conf.c_str());
  std::printf("initialised %s from %s (%d files)\n", dir.c_str(), factory.c_str(), copied);
  return failed ? 1 : 0;
}

bool startLibrary(bool quiet) {
  int rc = OX_ConfigMgr_Start();
  if (rc == 1) return true;
  if (!quiet) {
    std::fprintf(stderr, "oxcfg: start failed (result %d)\n", rc);
    for (const auto& e : g_errors.errors()) std::fprintf(stderr, "  %s\n", e.c_str());
  }
  return false;
}

std::string jsonEscape(const std::string& s) {
  std::string out;
  for (unsigned char c : s) {
    switch (c) {
      case '"': out += "\\\""; break;
      case '\\': out += "\\\\"; break;
      case '\n': out += "\\n"; break;
      case '\t': out += "\\t"; break;
      default:
        if (c < 0x20) {
          char buf[8];
          std::snprintf(buf, sizeof buf, "\\u%04x", c);
          out += buf;
        } else {
          out += static_cast<char>(c);
        }
    }
  }
  return out;
}

int cmdShow(const std::vector<std::string>& args) {
  bool json = false;
  std::string only;
  for (const auto& a : args) {
    if (a == "--json") json = true;
    else if (only.empty()) only = a;
    else return usage(), 2;
  }
  bool known = only.empty();
  for (const auto& s : showSections()) known = known || s.name == only;
  if (!known) {
    std::fprintf(stderr, "oxcfg: unknown section '%s'\n", only.c_str());
    return usage(), 2;
  }
  if (!startLibrary(false)) return 1;
  bool first = true;
  if (json) std::printf("{");
  for (const auto& s : showSections()) {
    if (!only.empty() && s.name != only) continue;
    Rows rows;
    if (!s.fill(rows)) continue;
    if (json) {
      std::printf("%s\n  \"%s\": {", first ? "" : ",", jsonEscape(s.name).c_str());
      for (size_t i = 0; i < rows.size(); ++i) {
        std::printf("%s\n    \"%s\": \"%s\"", i ? "," : "", jsonEscape(rows[i].first).c_str(),
                    jsonEscape(rows[i].second).c_str());
      }
      std::printf("\n  }");
    } else {
      size_t width = 0;
      for (const auto& r : rows) width = std::max(width, r.first.size());
      std::printf("%s[%s]\n", first ? "" : "\n", s.title.c_str());
      for (const auto& r : rows) {
        std::printf("  %-*s  %s\n", static_cast<int>(width), r.first.c_str(), r.second.c_str());
      }
    }
    first = false;
  }
  if (json) std::printf("\n}\n");
  return 0;
}

RegisterShow g_library({"library", "Library", [](Rows& rows) {
                          rows.emplace_back("working directory", OX_BASE_GetCurDir());
                          std::string v = OX_ConfigMgr_GetBackupVersion();
                          rows.emplace_back("carried over from", v.empty() ? "-" : v);
                          rows.emplace_back("security status",
                                            OX_ConfigMgr_GetSecurityStatus() ? "present" : "absent");
                          return true;
                        }});

}  // namespace
}  // namespace oxcfg

int main(int argc, char** argv) {
  using namespace oxcfg;
  std::vector<std::string> args(argv + 1, argv + argc);
  if (args.size() >= 2 && args[0] == "-C") {
    if (::chdir(args[1].c_str()) != 0) {
      std::fprintf(stderr, "oxcfg: cannot change to %s: %s\n", args[1].c_str(), std::strerror(errno));
      return 1;
    }
    args.erase(args.begin(), args.begin() + 2);
  }
  if (args.empty() || args[0] == "-h" || args[0] == "--help") {
    usage();
    return args.empty() ? 2 : 0;
  }
  OxBase::SetLogSink(&g_errors);
  const std::string cmd = args[0];
  std::vector<std::string> rest(args.begin() + 1, args.end());
  if (cmd == "init") return cmdInit(rest);
  if (cmd == "start") {
    if (!startLibrary(false)) return 1;
    std::printf("started (result 1)\n");
    return 0;
  }
  if (cmd == "show") return cmdShow(rest);

  // Registered commands: the longest name matching the leading words.
  const Command* best = nullptr;
  size_t bestWords = 0;
  for (const auto& c : commands()) {
    std::vector<std::string> words;
    size_t pos = 0;
    while (pos <= c.name.size()) {
      size_t sp = c.name.find(' ', pos);
      words.push_back(c.name.substr(pos, sp == std::string::npos ? std::string::npos : sp - pos));
      if (sp == std::string::npos) break;
      pos = sp + 1;
    }
    if (words.size() > args.size() || words.size() <= bestWords) continue;
    bool match = true;
    for (size_t i = 0; i < words.size(); ++i) match = match && words[i] == args[i];
    if (match) {
      best = &c;
      bestWords = words.size();
    }
  }
  if (!best) {
    std::fprintf(stderr, "oxcfg: unknown command '%s'\n", cmd.c_str());
    usage();
    return 2;
  }
  if (!startLibrary(false)) return 1;
  return best->run(std::vector<std::string>(args.begin() + static_cast<long>(bestWords), args.end()));
}
