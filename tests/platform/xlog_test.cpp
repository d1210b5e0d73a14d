#include "platform/xlog.h"

#include <unistd.h>

#include <atomic>
#include <new>
#include <set>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include "support/test_support.h"

namespace {

class XlogTest : public oxtest::WorkDirTest {};

TEST_F(XlogTest, FormatsFunctionAndLineAndReachesTheSink) {
  oxtest::LogCapture log;
  xlog_format(5, "OXW", "[%s(%d)] [sql=%s]execute failed.", "dbExecute", 42, "select 1");
  xlog_format(5, "DRVNET", "[%s(%d)] WebSessionID ModifyData failed", "loadFile", 7);
  auto e = log.entries();
  ASSERT_EQ(e.size(), 2u);
  EXPECT_EQ(e[0].text, "[dbExecute(42)] [sql=select 1]execute failed.");
  EXPECT_EQ(e[0].level, 5);
  EXPECT_TRUE(log.has(5, "WebSessionID ModifyData failed", "DRVNET"));
  // Over-long messages are cut, not overrun.
  xlog_format(3, "OXW", "[%s(%d)] %s", "f", 1, std::string(10000, 'a').c_str());
  EXPECT_LT(log.entries().back().text.size(), 5000u);
}

TEST_F(XlogTest, FollowsThePropertiesFileOfTheWorkingDirectory) {
  oxtest::writeFile(path("log4cxx.properties"), oxtest::fileLogProperties(path("out.log"), "%p %c %m%n"));
  xlog_configure_from_cwd();
  xlog_format(3, "OXW", "[%s(%d)] first", "f", 1);
  xlog_format(2, "OXW", "[%s(%d)] below the level", "f", 2);
  EXPECT_EQ(oxtest::readFile(path("out.log")), "INFO OXW [f(1)] first\n");

  // The library rewrote the root level to OFF: nothing more is written.
  std::string props = oxtest::readFile(path("log4cxx.properties"));
  props.replace(props.find("INFO"), 4, "OFF");
  oxtest::writeFile(path("log4cxx.properties"), props);
  xlog_reload(path("log4cxx.properties"));
  xlog_format(5, "OXW", "[%s(%d)] silenced", "f", 3);
  EXPECT_EQ(oxtest::readFile(path("out.log")), "INFO OXW [f(1)] first\n");
}

// Messages logged while the configuration is being replaced (as a log
// setter or a live reload replaces it) all reach the file: none falls into
// the moment between the old configuration's end and the new one's start.
TEST_F(XlogTest, NoMessageIsLostWhileTheConfigurationIsReplaced) {
  // A file appender appends: each new configuration goes on where the last
  // one stopped.
  oxtest::writeFile(path("log4cxx.properties"), oxtest::fileLogProperties(path("out.log")));
  xlog_configure_from_cwd();
  constexpr int kThreads = 2, kMessages = 1500;
  std::atomic<int> writing{kThreads};
  std::thread reloader([&] {
    while (writing.load() > 0) ASSERT_TRUE(xlog_reload(path("log4cxx.properties")));
  });
  std::vector<std::thread> writers;
  for (int t = 0; t < kThreads; ++t) {
    writers.emplace_back([&, t] {
      for (int n = 0; n < kMessages; ++n) xlog_format(3, "OXW", "m%d-%d", t, n);
      --writing;
    });
  }
  for (auto& w : writers) w.join();
  reloader.join();
  std::istringstream lines(oxtest::readFile(path("out.log")));
  std::set<std::string> seen;
  for (std::string line; std::getline(lines, line);) seen.insert(line);
  EXPECT_EQ(seen.size(), static_cast<size_t>(kThreads * kMessages));
}

// A sink that fails as a host's logging may (out of memory, a bug).
class ThrowingSink : public OxBase::LogSink {
 public:
  void Log(int, const char*, const std::string&) override { throw std::bad_alloc(); }
};

TEST_F(XlogTest, NothingLeavesTheLoggerWhateverTheSinkDoes) {
  static_assert(noexcept(xlog_format(5, "OXW", "x")), "logging runs in destructors and catch blocks");
  ThrowingSink sink;
  OxBase::SetLogSink(&sink);
  EXPECT_NO_THROW(xlog_format(5, "OXW", "[%s(%d)] lost", "f", 1));
  OxBase::SetLogSink(nullptr);
  // The next message goes out as usual.
  oxtest::LogCapture log;
  xlog_format(5, "OXW", "[%s(%d)] kept", "f", 2);
  EXPECT_TRUE(log.has(5, "kept"));
}

}  // namespace
