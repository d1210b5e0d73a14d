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

std::vector<Command>& builtinCommands() {
  static std::vector<Command> c;
  return c;
}

std::vector<std::pair<std::string, std::function<std::vector<std::string>()>>>& commandWords() {
  static std::vector<std::pair<std::string, std::function<std::vector<std::string>()>>> w;
  return w;
}

RegisterWords::RegisterWords(const std::string& command, std::function<std::vector<std::string>()> words) {
  commandWords().emplace_back(command, std::move(words));
}

std::vector<const Command*> allCommands() {
  std::vector<const Command*> out;
  static const char* const kOrder[] = {"init", "start", "show", "doctor", "help", "manpage", "completion"};
  auto rank = [](const Command* c) {
    size_t i = 0;
    while (i < sizeof kOrder / sizeof kOrder[0] && c->name != kOrder[i]) ++i;
    return i;
  };
  // A command without a help line is internal (the completion's helper).
  for (const auto& c : builtinCommands()) {
    if (!c.help.empty()) out.push_back(&c);
  }
  std::stable_sort(out.begin(), out.end(), [&](const Command* a, const Command* b) { return rank(a) < rank(b); });
  std::vector<const Command*> rest;
  for (const auto& c : commands()) rest.push_back(&c);
  std::stable_sort(rest.begin(), rest.end(),
                   [](const Command* a, const Command* b) { return a->name < b->name; });
  out.insert(out.end(), rest.begin(), rest.end());
  return out;
}

namespace {
bool g_json = false;

std::vector<std::string> splitWords(const std::string& name) {
  std::vector<std::string> words;
  size_t pos = 0;
  while (pos <= name.size()) {
    size_t sp = name.find(' ', pos);
    words.push_back(name.substr(pos, sp == std::string::npos ? std::string::npos : sp - pos));
    if (sp == std::string::npos) break;
    pos = sp + 1;
  }
  return words;
}
}  // namespace

const Command* findCommand(const std::vector<std::string>& args, size_t* words) {
  const Command* best = nullptr;
  size_t bestWords = 0;
  std::vector<const Command*> all;
  for (const auto& c : builtinCommands()) all.push_back(&c);
  for (const auto& c : commands()) all.push_back(&c);
  for (const Command* c : all) {
    std::vector<std::string> w = splitWords(c->name);
    if (w.size() > args.size() || w.size() <= bestWords) continue;
    bool match = true;
    for (size_t i = 0; i < w.size(); ++i) match = match && w[i] == args[i];
    if (match) {
      best = c;
      bestWords = w.size();
    }
  }
  if (words) *words = bestWords;
  return best;
}

bool jsonOutput() { return g_json; }
void setJsonOutput(bool on) { g_json = on; }

std::string jsonString(const std::string& s) {
  std::string out = "\"";
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
  return out + "\"";
}

void printRows(const std::string& title, const Rows& rows) {
  if (jsonOutput()) {
    std::printf("{");
    for (size_t i = 0; i < rows.size(); ++i) {
      std::printf("%s\n  %s: %s", i ? "," : "", jsonString(rows[i].first).c_str(),
                  jsonString(rows[i].second).c_str());
    }
    std::printf("\n}\n");
    return;
  }
  size_t width = 0;
  for (const auto& r : rows) width = std::max(width, r.first.size());
  if (!title.empty()) std::printf("[%s]\n", title.c_str());
  for (const auto& r : rows) {
    std::printf("%s%-*s  %s\n", title.empty() ? "" : "  ", static_cast<int>(width), r.first.c_str(),
                r.second.c_str());
  }
}

int reportResult(const std::string& what, int code, const std::string& meaning) {
  if (jsonOutput()) {
    std::printf("{\"command\": %s, \"result\": %d, \"ok\": %s, \"meaning\": %s}\n", jsonString(what).c_str(), code,
                code == 0 ? "true" : "false", jsonString(code == 0 ? "" : meaning).c_str());
    if (code != 0) {
      std::fprintf(stderr, "%s: failed (result %d%s%s)\n", what.c_str(), code, meaning.empty() ? "" : ": ",
                   meaning.c_str());
    }
    return code == 0 ? kExitOk : kExitRefused;
  }
  if (code == 0) {
    std::printf("%s: done (result 0)\n", what.c_str());
    return kExitOk;
  }
  std::fprintf(stderr, "%s: failed (result %d%s%s)\n", what.c_str(), code, meaning.empty() ? "" : ": ",
               meaning.c_str());
  return kExitRefused;
}

int usageError(const std::string& message) {
  std::fprintf(stderr, "oxcfg: %s\n", message.c_str());
  return kExitUsage;
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
    else if (dir.empty() && args[i].compare(0, 2, "--") != 0) dir = args[i];
    else return usageError("init takes DIR [--force] [--factory FACTORY_DIR]");
  }
  if (dir.empty()) return usageError("init needs the directory to lay out");
  factory = factoryDir(factory);
  if (OSL_MakeDir(dir.c_str()) != 0) {
    std::fprintf(stderr, "oxcfg: cannot create %s: %s\n", dir.c_str(), std::strerror(errno));
    return kExitRefused;
  }
  const std::string config = dir + "/Config.xml";
  if (!force && OSL_AccessFile(config.c_str(), 0) == 0) {
    std::fprintf(stderr, "oxcfg: %s already holds a configuration (use --force to overwrite)\n",
                 dir.c_str());
    return kExitRefused;
  }
  DIR* d = ::opendir(factory.c_str());
  if (!d) {
    std::fprintf(stderr, "oxcfg: cannot read factory defaults in %s\n", factory.c_str());
    return kExitRefused;
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
  // Export and import run the directory's own 7za.
  if (!linkArchiverInto(dir)) std::fprintf(stderr, "oxcfg: no 7za found (install p7zip-full)\n");
  if (jsonOutput()) {
    std::printf("{\"directory\": %s, \"factory\": %s, \"files\": %d, \"failed\": %d}\n", jsonString(dir).c_str(),
                jsonString(factory).c_str(), copied, failed);
  } else {
    std::printf("initialised %s from %s (%d files)\n", dir.c_str(), factory.c_str(), copied);
  }
  return failed ? kExitRefused : kExitOk;
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

int cmdShow(const std::vector<std::string>& args) {
  std::string only;
  for (const auto& a : args) {
    if (only.empty() && a.compare(0, 1, "-") != 0) only = a;
    else return usageError("show takes at most one SECTION");
  }
  bool known = only.empty();
  for (const auto& s : showSections()) known = known || s.name == only;
  if (!known) return usageError("unknown section '" + only + "' (run oxcfg help show)");
  if (!startLibrary(false)) return kExitRefused;
  const bool json = jsonOutput();
  bool first = true;
  if (json) std::printf("{");
  for (const auto& s : showSections()) {
    if (!only.empty() && s.name != only) continue;
    Rows rows;
    if (!s.fill(rows)) continue;
    if (json) {
      std::printf("%s\n  %s: {", first ? "" : ",", jsonString(s.name).c_str());
      for (size_t i = 0; i < rows.size(); ++i) {
        std::printf("%s\n    %s: %s", i ? "," : "", jsonString(rows[i].first).c_str(),
                    jsonString(rows[i].second).c_str());
      }
      std::printf("\n  }");
    } else {
      if (!first) std::printf("\n");
      printRows(s.title, rows);
    }
    first = false;
  }
  if (json) std::printf("\n}\n");
  return kExitOk;
}

std::string sectionList() {
  std::string out;
  for (const auto& s : showSections()) out += (out.empty() ? "" : ", ") + s.name;
  return out;
}

RegisterBuiltin g_init({"init", "DIR [--force] [--factory FACTORY_DIR]",
                        "lay out DIR as a working directory from the factory defaults and link the system's 7za "
                        "there; refuses a directory that already holds Config.xml unless --force is given",
                        [](const std::vector<std::string>& args) { return cmdInit(args); }});

RegisterBuiltin g_start({"start", "",
                         "start the library in the working directory; on failure print the failing step",
                         [](const std::vector<std::string>& args) {
                           if (!args.empty()) return usageError("start takes no arguments");
                           if (!startLibrary(false)) return kExitRefused;
                           if (jsonOutput()) std::printf("{\"started\": true, \"result\": 1}\n");
                           else std::printf("started (result 1)\n");
                           return kExitOk;
                         }});

RegisterBuiltin g_show({"show", "[SECTION]",
                        "start the library and show every started object as tables (or one SECTION)",
                        [](const std::vector<std::string>& args) { return cmdShow(args); }});

RegisterShow g_library({"library", "Library", [](Rows& rows) {
                          rows.emplace_back("working directory", OX_BASE_GetCurDir());
                          std::string v = OX_ConfigMgr_GetBackupVersion();
                          rows.emplace_back("carried over from", v.empty() ? "-" : v);
                          rows.emplace_back("security status",
                                            OX_ConfigMgr_GetSecurityStatus() ? "present" : "absent");
                          return true;
                        }});

}  // namespace

// Names of the show sections for the help text (help.cpp).
std::string showSectionNames() { return sectionList(); }

}  // namespace oxcfg

int main(int argc, char** argv) {
  using namespace oxcfg;
  std::vector<std::string> args;
  bool help = false;
  // Global options: -C DIR before the command; --json and --help anywhere.
  for (int i = 1; i < argc; ++i) {
    std::string a = argv[i];
    if (a == "--json") setJsonOutput(true);
    else if (a == "--help" || a == "-h") help = true;
    else args.push_back(a);
  }
  if (args.size() >= 1 && (args[0] == "-C" || args[0] == "--directory")) {
    if (args.size() < 2) return usageError("-C needs a directory");
    if (::chdir(args[1].c_str()) != 0) {
      std::fprintf(stderr, "oxcfg: cannot change to %s: %s\n", args[1].c_str(), std::strerror(errno));
      return kExitRefused;
    }
    args.erase(args.begin(), args.begin() + 2);
  }
  if (help) {
    std::vector<std::string> helpArgs{"help"};
    helpArgs.insert(helpArgs.end(), args.begin(), args.end());
    args = helpArgs;
  }
  if (args.empty()) {
    shortUsage();
    return kExitUsage;
  }
  if (args[0] == "--version") {
    std::printf("oxcfg %s\n", OXCFG_VERSION);
    return kExitOk;
  }
  if (args[0].compare(0, 1, "-") == 0) {
    std::fprintf(stderr, "oxcfg: unknown option '%s'\n", args[0].c_str());
    shortUsage();
    return kExitUsage;
  }
  OxBase::SetLogSink(&g_errors);
  size_t words = 0;
  const Command* c = findCommand(args, &words);
  if (!c) {
    std::fprintf(stderr, "oxcfg: unknown command '%s'\n", args[0].c_str());
    shortUsage();
    return kExitUsage;
  }
  std::vector<std::string> rest(args.begin() + static_cast<long>(words), args.end());
  // `watch DIR` watches DIR: it becomes the working directory before the
  // library starts, as with -C, so the directory this runs from needs no
  // configuration of its own.
  if (c->name == "watch") {
    auto dir = std::find_if(rest.begin(), rest.end(), [](const std::string& a) { return a.compare(0, 1, "-") != 0; });
    if (dir != rest.end()) {
      if (::chdir(dir->c_str()) != 0) {
        std::fprintf(stderr, "oxcfg: cannot watch %s: %s\n", dir->c_str(), std::strerror(errno));
        return kExitRefused;
      }
      rest.erase(dir);
    }
  }
  bool builtin = false;
  for (const auto& b : builtinCommands()) builtin = builtin || &b == c;
  if (!builtin && !startLibrary(false)) return kExitRefused;
  try {
    return c->run(rest);
  } catch (const std::exception& e) {
    std::fprintf(stderr, "oxcfg: %s failed: %s\n", c->name.c_str(), e.what());
    return kExitRefused;
  }
}
