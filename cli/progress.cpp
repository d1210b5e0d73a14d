#include "cli/progress.h"

#include <unistd.h>

#include <chrono>
#include <cstdio>

namespace oxcfg {
namespace {

uint64_t nowMs() {
  return static_cast<uint64_t>(std::chrono::duration_cast<std::chrono::milliseconds>(
                                   std::chrono::steady_clock::now().time_since_epoch())
                                   .count());
}

}  // namespace

Progress::Progress(std::string what) : what_(std::move(what)) {
  active_ = isatty(STDERR_FILENO) == 1;
  if (!active_) return;
  startMs_ = nowMs();
  draw(false);
  try {
    thread_ = std::thread([this] {
      std::unique_lock<std::mutex> lock(mutex_);
      while (!wake_.wait_for(lock, std::chrono::milliseconds(250), [this] { return stop_; })) draw(false);
    });
  } catch (...) {
    // Without a thread the first line stays; the work itself goes on.
  }
}

Progress::~Progress() {
  if (!active_) return;
  {
    std::lock_guard<std::mutex> lock(mutex_);
    stop_ = true;
  }
  wake_.notify_all();
  if (thread_.joinable()) thread_.join();
  draw(true);
}

void Progress::draw(bool final) {
  static const char kSpinner[] = "|/-\\";
  const uint64_t elapsed = nowMs() - startMs_;
  if (final) {
    std::fprintf(stderr, "\r\033[K%s: finished in %llu.%llu s\n", what_.c_str(),
                 static_cast<unsigned long long>(elapsed / 1000),
                 static_cast<unsigned long long>(elapsed % 1000 / 100));
  } else {
    std::fprintf(stderr, "\r\033[K%s: working %c %llu s", what_.c_str(), kSpinner[frame_++ % 4],
                 static_cast<unsigned long long>(elapsed / 1000));
  }
  std::fflush(stderr);
}

}  // namespace oxcfg
