// Maintenance settings ("Maintain" in "Config.xml"): the log switch and
// level, log clean-up, and whether device messages are logged verbatim. The
// log switch and level also drive the root logger line of
// "log4cxx.properties". The object also owns the process's one connection to
// the system-log database.
#ifndef OXCONFIGMGR_OXMAINTAIN_H
#define OXCONFIGMGR_OXMAINTAIN_H

#include <oxconfigmgr/OxExport.h>
#include <oxconfigmgr/OxLogLevel.h>

#include <atomic>
#include <cstdint>
#include <string>

namespace OxConfigMgr {

// Getters read memory without locks and may be called from any thread.
// Each setter is serialised with itself and with every other read-modify-write
// of "Config.xml". No method throws.
class OXCFG_API CMaintain {
 public:
  CMaintain();
  ~CMaintain();
  CMaintain(const CMaintain&) = delete;
  CMaintain& operator=(const CMaintain&) = delete;

  // Reads the section. False when "Config.xml" cannot be read or Config,
  // Maintain, Log, Log/Enable or Log/Level is missing. Missing clean-up
  // values read as 1 hour and 200 days; LogDeviceTransparent reads as 1 for
  // any non-zero number. Does not touch the log configuration and writes
  // nothing: live reload runs it again when another process replaced the
  // file (getters see each value old or new). False leaves memory untouched.
  bool loadFile();
  // Opens the system-log connection (replacing one made earlier). True
  // unless the connection object could not be made.
  bool start();
  // Closes the system-log connection (calls in progress finish on it). True.
  bool stop();

  // The settings as last loaded or set, from memory without a lock: the
  // log switch (1 on), the level (0..7), the clean-up interval in hours,
  // the retention in days and the device-message pass-through (1 on).
  int isLogEnable() const { return logEnable.load(std::memory_order_relaxed); }
  int getLogLevel() const { return logLevel.load(std::memory_order_relaxed); }
  int getLogCleanupIntevalHour() const { return logCleanupIntervalHour.load(std::memory_order_relaxed); }
  int getLogCleanupRetentionDay() const { return logCleanupRetentionDay.load(std::memory_order_relaxed); }
  int getLogDeviceTransparent() const { return logDeviceTransparent.load(std::memory_order_relaxed); }

  // Setters. Results: 0 done; 1 the element is missing (nothing written);
  // 2 "Config.xml" could not be read; 3 it could not be written (memory
  // unchanged). enableLog and setLogLevel then rewrite the root logger line
  // of "log4cxx.properties" (a failure there is logged, the result stays 0)
  // and the library's logging follows it at once.
  int enableLog(int value);
  // Any number is stored; outside 0..7 the root logger is set to "OFF".
  int setLogLevel(XLOG_LEVEL level);
  // Stores 1 for any non-zero value, else 0; does not touch the log file.
  int setLogDeviceTransparent(int value);

  // Replaces the level between "log4j.rootLogger=" and the next "," of the
  // working directory's "log4cxx.properties" with the level name ("OFF" when
  // logging is off) and re-reads the logging configuration. A file without
  // that line or without the "," is left as it is.
  void ModifyLog4j();
  // Whole-file read; false (logged) on failure.
  bool ReadLog4j(std::string& path, std::string& content);
  // Whole-file atomic replacement keeping the file's mode; false on failure,
  // the old file then stays. Logged: "open file failed, path[..],error[..]"
  // when the file cannot be created (a missing directory, no permission);
  // "write file failed, elngth[<length>]-[<bytes written>],error[..]" for a
  // short write; "replace file failed, path[..],error[..]" when syncing or
  // renaming the new file failed. True also when only the directory sync
  // after the rename failed: the new content is in place.
  bool WriteLog4j(std::string& path, std::string& content);

  // The system-log connection's Begin, Commit, Rollback and Execute; false
  // without a connection (before start or after stop). A failing statement is
  // logged with its text. The integer of the second dbExecute is how long to
  // wait, in milliseconds, for a lock held by another connection.
  bool dbBegin();
  bool dbCommit();
  bool dbRollback();
  bool dbExecute(const std::string& sql);
  bool dbExecute(const std::string& sql, int n);

 private:
  int setLogSwitch(const char* leaf, int value, std::atomic<int32_t>* member);

  std::atomic<int32_t> logEnable;
  std::atomic<int32_t> logLevel;
  std::atomic<int32_t> logCleanupIntervalHour;
  std::atomic<int32_t> logCleanupRetentionDay;
  std::atomic<int32_t> logDeviceTransparent;
};

}  // namespace OxConfigMgr

#endif  // OXCONFIGMGR_OXMAINTAIN_H
