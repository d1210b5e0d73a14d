#include "platform/xlog.h"

#include <log4cxx/file.h>
#include <log4cxx/level.h>
#include <log4cxx/logger.h>
#include <log4cxx/logmanager.h>
#include <log4cxx/propertyconfigurator.h>
#include <log4cxx/spi/loggerrepository.h>
#include <unistd.h>

#include <atomic>
#include <cstdarg>
#include <cstdio>
#include <map>
#include <mutex>
#include <shared_mutex>

#include "platform/oxbase.h"

namespace {

std::mutex g_sinkMutex;
std::atomic<OxBase::LogSink*> g_sink{nullptr};

// Who configured log4cxx. kSilent: nobody had, and there was no properties
// file, so the library switched the root logger off and looks again at the
// next xlog_configure_from_cwd (a host typically chdirs before starting).
enum ConfigState { kUnchecked, kSilent, kFromFile, kHost };
std::mutex g_configMutex;
std::atomic<int> g_configState{kUnchecked};

// Held shared by every message on its way through log4cxx and exclusively
// while the configuration is replaced (taken after g_configMutex, never
// the other way round): between the old configuration's end and the new
// one's start there are no appenders, and a message sent then would be
// lost. Messages wait for the new configuration instead.
std::shared_mutex g_replaceLock;

log4cxx::LevelPtr LevelFor(int level) {
  switch (level) {
    case 0:
    case 1: return log4cxx::Level::getTrace();
    case 2: return log4cxx::Level::getDebug();
    case 3: return log4cxx::Level::getInfo();
    case 4: return log4cxx::Level::getWarn();
    case 5: return log4cxx::Level::getError();
    default: return log4cxx::Level::getFatal();
  }
}

// The key is made before the lock is taken, and the lock is held only by
// its guard, so a failed allocation cannot leave it locked.
log4cxx::LoggerPtr LoggerFor(const char* module) {
  static std::mutex mutex;
  static std::map<std::string, log4cxx::LoggerPtr>* loggers =
      new std::map<std::string, log4cxx::LoggerPtr>;  // outlives static destruction
  const std::string key(module);
  {
    std::lock_guard<std::mutex> lock(mutex);
    auto it = loggers->find(key);
    if (it != loggers->end()) return it->second;
  }
  log4cxx::LoggerPtr logger = log4cxx::Logger::getLogger(key);
  std::lock_guard<std::mutex> lock(mutex);
  return loggers->emplace(key, logger).first->second;
}

}  // namespace

void xlog_configure_from_cwd() {
  int state = g_configState.load(std::memory_order_acquire);
  if (state == kFromFile || state == kHost) return;
  std::lock_guard<std::mutex> lock(g_configMutex);
  state = g_configState.load(std::memory_order_relaxed);
  if (state == kFromFile || state == kHost) return;
  try {
    auto repo = log4cxx::LogManager::getLoggerRepository();
    if (state == kUnchecked && repo->isConfigured()) {
      g_configState.store(kHost, std::memory_order_release);
      return;
    }
    std::string path = OX_BASE_GetCurDir() + "log4cxx.properties";
    if (::access(path.c_str(), R_OK) == 0) {
      std::unique_lock<std::shared_mutex> replacing(g_replaceLock);
      if (state == kSilent) log4cxx::LogManager::resetConfiguration();
      log4cxx::PropertyConfigurator::configure(log4cxx::File(path));
      g_configState.store(kFromFile, std::memory_order_release);
    } else if (state == kUnchecked) {
      // No configuration anywhere: stay silent rather than let log4cxx
      // complain on standard error about missing appenders.
      log4cxx::Logger::getRootLogger()->setLevel(log4cxx::Level::getOff());
      repo->setConfigured(true);
      g_configState.store(kSilent, std::memory_order_release);
    }
  } catch (...) {
    // A broken properties file must not take the host down.
    g_configState.store(kSilent, std::memory_order_release);
  }
}

bool xlog_reload(const std::string& path) {
  xlog_configure_from_cwd();
  std::lock_guard<std::mutex> lock(g_configMutex);
  if (g_configState.load(std::memory_order_relaxed) != kFromFile) return false;
  try {
    std::unique_lock<std::shared_mutex> replacing(g_replaceLock);
    log4cxx::LogManager::resetConfiguration();
    log4cxx::PropertyConfigurator::configure(log4cxx::File(path));
  } catch (...) {
  }
  return true;
}

int xlog_root_level() {
  std::lock_guard<std::mutex> lock(g_configMutex);
  try {
    log4cxx::LevelPtr level = log4cxx::Logger::getRootLogger()->getLevel();
    return level ? level->toInt() : -1;
  } catch (...) {
    return -1;
  }
}

void xlog_format(int level, const char* module, const char* format, ...) noexcept {
  if (!format) return;
  if (!module) module = "OXW";
  // Formatting needs no allocation: a message longer than the buffer is cut.
  char buf[4096];
  va_list args;
  va_start(args, format);
  int n = std::vsnprintf(buf, sizeof buf, format, args);
  va_end(args);
  if (n < 0) return;
  // Runs in destructors and catch blocks: nothing may leave it, whatever a
  // sink or log4cxx throws (std::bad_alloc included); the message is then lost.
  try {
    const std::string text(buf, static_cast<size_t>(n) < sizeof buf ? static_cast<size_t>(n) : sizeof buf - 1);
    if (OxBase::LogSink* sink = g_sink.load(std::memory_order_acquire)) {
      std::lock_guard<std::mutex> lock(g_sinkMutex);
      if ((sink = g_sink.load(std::memory_order_relaxed)) != nullptr) sink->Log(level, module, text);
    }
    if (g_configState.load(std::memory_order_acquire) == kUnchecked) xlog_configure_from_cwd();
    log4cxx::LoggerPtr logger = LoggerFor(module);
    log4cxx::LevelPtr lvl = LevelFor(level);
    std::shared_lock<std::shared_mutex> configured(g_replaceLock);
    if (logger->isEnabledFor(lvl)) logger->forcedLog(lvl, text);
  } catch (...) {
  }
}

namespace OxBase {

void SetLogSink(LogSink* sink) {
  std::lock_guard<std::mutex> lock(g_sinkMutex);
  g_sink.store(sink, std::memory_order_release);
}

}  // namespace OxBase
