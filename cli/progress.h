// oxcfg: progress of long work (export, import) on a terminal.
#ifndef OXCFG_CLI_PROGRESS_H
#define OXCFG_CLI_PROGRESS_H

#include <atomic>
#include <condition_variable>
#include <cstdint>
#include <mutex>
#include <string>
#include <thread>

namespace oxcfg {

// While it lives, shows "WHAT: working | 3 s" on standard error, redrawn
// every quarter second, and on destruction "WHAT: finished in 3.2 s". Only
// when standard error is a terminal: output that goes to a file or a pipe
// stays exactly what it would be without progress. The library's export and
// import report no steps, so the line shows that work goes on and for how
// long, not a share done.
class Progress {
 public:
  explicit Progress(std::string what);
  ~Progress();
  Progress(const Progress&) = delete;
  Progress& operator=(const Progress&) = delete;

 private:
  void draw(bool final);

  std::string what_;
  bool active_ = false;
  uint64_t startMs_ = 0;
  unsigned frame_ = 0;
  std::mutex mutex_;
  std::condition_variable wake_;
  bool stop_ = false;
  std::thread thread_;
};

}  // namespace oxcfg

#endif  // OXCFG_CLI_PROGRESS_H
