// oxcfg watch: prints every value that another process changes in the
// working directory, as the library's live reload takes it, until
// interrupted.
#include <limits.h>
#include <signal.h>
#include <stdlib.h>
#include <unistd.h>

#include <oxconfigmgr/OxConfigMgr.h>

#include <cstdio>
#include <map>
#include <mutex>
#include <string>
#include <utility>
#include <vector>

#include "cli/cli.h"

namespace oxcfg {
namespace {

// Section name -> its rows, as `show` prints them.
using Snapshot = std::map<std::string, Rows>;

// Rows that follow the clock, not the files: never reported.
bool followsClock(const std::string& section, const std::string& field) {
  return section == "time" && field == "local time";
}

Snapshot takeSnapshot() {
  Snapshot snap;
  for (const auto& s : showSections()) {
    Rows rows;
    if (!s.fill(rows)) continue;
    Rows kept;
    for (auto& r : rows) {
      if (!followsClock(s.name, r.first)) kept.push_back(std::move(r));
    }
    snap[s.name] = std::move(kept);
  }
  return snap;
}

struct Watch {
  std::mutex mutex;
  Snapshot last;
  bool json = false;

  // One line per field whose text changed since the last look.
  void changed(const char* file) {
    std::lock_guard<std::mutex> lock(mutex);
    Snapshot now = takeSnapshot();
    for (const auto& section : now) {
      const Rows& before = last[section.first];
      for (size_t i = 0; i < section.second.size(); ++i) {
        const auto& row = section.second[i];
        std::string old = "-";
        for (const auto& b : before) {
          if (b.first == row.first) old = b.second;
        }
        if (old == row.second) continue;
        if (json) {
          std::printf("{\"file\":%s,\"section\":%s,\"field\":%s,\"old\":%s,\"new\":%s}\n",
                      jsonString(file).c_str(), jsonString(section.first).c_str(), jsonString(row.first).c_str(),
                      jsonString(old).c_str(), jsonString(row.second).c_str());
        } else {
          std::printf("%s  %s / %s: %s -> %s\n", file, section.first.c_str(), row.first.c_str(),
                      old.c_str(), row.second.c_str());
        }
      }
    }
    std::fflush(stdout);
    last = std::move(now);
  }

  static void callback(const char* file, void* self) { static_cast<Watch*>(self)->changed(file); }
};

std::string realPath(const std::string& path) {
  char buf[PATH_MAX];
  return ::realpath(path.c_str(), buf) ? std::string(buf) : std::string();
}

int runWatch(const std::vector<std::string>& args) {
  // The global --json is taken off the command line before the command runs;
  // so is DIR, which main made the working directory before the start.
  bool json = jsonOutput();
  for (const auto& a : args) {
    if (a == "--json") {
      json = true;
    } else {
      std::fprintf(stderr, "usage: oxcfg [-C DIR] watch [DIR] [--json]\n");
      return 2;
    }
  }

  // The library's threads inherit the mask: only this thread takes the
  // signals that end the watch.
  sigset_t stopSignals;
  sigemptyset(&stopSignals);
  sigaddset(&stopSignals, SIGINT);
  sigaddset(&stopSignals, SIGTERM);
  sigaddset(&stopSignals, SIGHUP);
  pthread_sigmask(SIG_BLOCK, &stopSignals, nullptr);

  static Watch watch;  // the callback may still run while main returns
  watch.json = json;
  watch.last = takeSnapshot();
  OX_ConfigMgr_AddReloadCallback(&Watch::callback, &watch);
  if (OX_ConfigMgr_EnableLiveReload(1) != 1) {
    std::fprintf(stderr, "oxcfg: the working directory cannot be watched\n");
    return 1;
  }
  std::fprintf(stderr, "watching %s (interrupt to stop)\n", realPath(".").c_str());
  int signal = 0;
  sigwait(&stopSignals, &signal);
  OX_ConfigMgr_EnableLiveReload(0);
  OX_ConfigMgr_RemoveReloadCallback(&Watch::callback, &watch);
  return 0;
}

RegisterCommand g_watch({"watch", "[DIR] [--json]",
                         "prints each value another process changes (file, section, field, old and "
                         "new value) until interrupted; --json: one JSON object per line",
                         runWatch});

}  // namespace
}  // namespace oxcfg
