// The library's logging, over log4cxx.
//
// xlog_format(level, module, format, function, line, ...) formats a printf
// style message into a bounded buffer and sends it to the log4cxx logger named
// by `module` ("OXW", "DRVNET"). Every format of the library begins with
// "[%s(%d)] ", which `function` and `line` fill. Levels: 2 DEBUG, 3 INFO,
// 4 WARN, 5 ERROR (0 and 1 TRACE, 6 and above FATAL).
//
// Configuration: when the host process has not configured log4cxx itself,
// the first message (or xlog_configure_from_cwd) configures it from the
// working directory's "log4cxx.properties"; without that file the library
// stays silent. After the library rewrites that file, xlog_reload re-reads it
// so that a new root level takes effect at once.
#ifndef OXCFG_PLATFORM_XLOG_H
#define OXCFG_PLATFORM_XLOG_H

#include <oxconfigmgr/OxLogLevel.h>

#include <string>

// Never throws and never fails the caller: a message that cannot be
// delivered (no memory, a throwing sink) is dropped. Safe in destructors and
// catch blocks. A message sent while xlog_reload replaces the configuration
// waits for the new one.
void xlog_format(int level, const char* module, const char* format, ...) noexcept
    __attribute__((format(printf, 3, 4)));

// Configures log4cxx from "<cwd>/log4cxx.properties" unless the host (or an
// earlier call) configured it already. Thread-safe; cheap after the first
// call. Throws nothing.
void xlog_configure_from_cwd();

// Re-reads `path` if the library owns the log4cxx configuration (it made it
// from a properties file): true then; false, doing nothing, when the host
// configured log4cxx or no properties file was ever found. Messages sent
// meanwhile wait for the new configuration rather than being lost.
bool xlog_reload(const std::string& path);

// The root logger's level as log4cxx numbers it, read under the lock that
// xlog_reload holds while it replaces the configuration (so a reader never
// meets a level a reload is still publishing); -1 without a root level.
int xlog_root_level();

namespace OxBase {

// Receives every message, whatever the log4cxx level; for tests.
class LogSink {
 public:
  virtual ~LogSink() = default;
  virtual void Log(int level, const char* module, const std::string& text) = 0;
};

// Installs `sink` (nullptr removes it). The caller keeps ownership.
void SetLogSink(LogSink* sink);

}  // namespace OxBase

// Logs with module "OXW" and the calling function's name and line.
#define OXLOG(level, fmt, ...) \
  xlog_format((level), "OXW", (fmt), __FUNCTION__, __LINE__, ##__VA_ARGS__)

#endif  // OXCFG_PLATFORM_XLOG_H
