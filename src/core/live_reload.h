// Live reload: one library thread watches the working directory and, when
// another writer replaced a configuration file, reloads the objects that read
// it (memory only) and tells the host's callbacks.
#ifndef OXCFG_CORE_LIVE_RELOAD_H
#define OXCFG_CORE_LIVE_RELOAD_H

#include <oxconfigmgr/OxConfigMgr.h>

#include <atomic>
#include <condition_variable>
#include <cstddef>
#include <deque>
#include <map>
#include <mutex>
#include <set>
#include <string>
#include <thread>
#include <vector>

namespace OxBase {
class Env;
struct DirEvent;
}  // namespace OxBase

namespace OxConfigMgr {

class CInstanceMgr;

// One row per object that reads a file: which object a replacement of `file`
// reloads. One table for every file (live_reload.cpp), beside the start
// table of the same objects.
struct ReloadRow {
  // How a reload keeps the object's lock order.
  enum Order {
    // Inside the file's transaction (ConfigFileTxn), which the object's
    // setters hold around their write and memory update: the reload sees
    // each of them wholly before or wholly after it.
    kInFileTxn,
    // Outside it: the object's setters take their own lock before the
    // file's, and so does its reload; it reads the file's current whole
    // version (files are only ever replaced whole).
    kOwnLockFirst,
  };
  const char* file;    // name in the working directory
  const char* object;  // class name, for the log
  Order order;
  // Reads the object's values again, memory only: 1 done; 0 the file gave no
  // values (memory untouched); -1 the object is not started (nothing to do).
  int (*reload)(CInstanceMgr& m);
};
const ReloadRow* reloadRows(size_t* count);

class LiveReload {
 public:
  // The process-wide instance; stops its threads when static destruction
  // reaches it (before the instance manager's).
  static LiveReload& Instance();
  // The instance when Instance() has made it, otherwise null (so that Stop
  // in a process that never used live reload touches nothing).
  static LiveReload* IfMade();
  ~LiveReload();

  // on: starts watching the working directory of this moment (1; 0 when the
  // watch cannot be set up, logged; 1 at once when already on). off: stop().
  int enable(bool on);
  // Stops and joins both threads (pending notifications are dropped). 1;
  // 0 when called from a reload callback (a thread cannot join itself).
  int stop();
  bool running() const { return m_running.load(std::memory_order_acquire); }

  int addCallback(OX_ConfigMgr_ReloadCallback cb, void* context);
  int removeCallback(OX_ConfigMgr_ReloadCallback cb, void* context);

  // The files of the table that a batch of events replaced, each once; the
  // renames of this process's own writes left out. For tests.
  static std::set<std::string> changedFiles(const std::vector<OxBase::DirEvent>& events);
  // Reloads the objects of `file` as the watch thread does; true when at
  // least one object took new values (the callbacks are then queued).
  bool reloadFile(const std::string& file);

 private:
  LiveReload() = default;
  void watchLoop();
  void notifyLoop();
  bool onNotifyThread() const;

  mutable std::mutex m_control;  // enable/stop
  std::atomic<bool> m_running{false};
  std::atomic<bool> m_stopping{false};
  OxBase::Env* m_env = nullptr;  // the Env that opened m_watch
  int m_watch = -1;
  std::string m_dir;
  std::thread m_watcher;
  std::thread m_notifier;
  std::atomic<std::thread::id> m_notifierId{std::thread::id()};

  std::mutex m_failMutex;
  std::set<std::string> m_failed;  // files whose bad version was logged

  std::mutex m_queueMutex;
  std::condition_variable m_queueCv;
  std::deque<std::string> m_queue;  // file names to announce

  // Held while callbacks run, so a removal from another thread waits for a
  // running call; recursive so a callback may remove itself.
  std::recursive_mutex m_callbackMutex;
  std::vector<std::pair<OX_ConfigMgr_ReloadCallback, void*>> m_callbacks;
};

}  // namespace OxConfigMgr

#endif  // OXCFG_CORE_LIVE_RELOAD_H
