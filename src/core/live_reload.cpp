#include "core/live_reload.h"

#include <algorithm>
#include <exception>
#include <map>

#include <oxconfigmgr/OxAlarmMonitorCfg.h>
#include <oxconfigmgr/OxBasicCfg.h>
#include <oxconfigmgr/OxMaintain.h>
#include <oxconfigmgr/OxNATGateway.h>
#include <oxconfigmgr/OxNetworkCfg.h>
#include <oxconfigmgr/OxPrivateCfg.h>
#include <oxconfigmgr/OxSwitchCfg.h>

#include "core/instance_mgr.h"
#include "frame/config_txn.h"
#include "frame/singleton.h"
#include "platform/dir_watch.h"
#include "platform/env.h"
#include "platform/osl.h"
#include "platform/oxbase.h"
#include "platform/xlog.h"
#include "platform/xml_base.h"

namespace OxConfigMgr {

namespace {

// A burst ends when the directory stays quiet this long, or at the latest
// this long after its first event: several replacements in quick succession
// cost one reload per object.
constexpr int kQuietMillis = 2;
constexpr uint64_t kMaxBurstMillis = 25;

bool inTable(const std::string& file) {
  size_t count = 0;
  const ReloadRow* rows = reloadRows(&count);
  for (size_t i = 0; i < count; ++i) {
    if (file == rows[i].file) return true;
  }
  return false;
}

// A reload method reports success as true, or as 1 when it returns int.
constexpr bool succeeded(bool ok) { return ok; }
constexpr bool succeeded(int rc) { return rc == 1; }

// The reload of one row: the object `Get` hands out, reloaded through
// `Method`. 1 done, 0 failed, -1 no object in that slot.
template <auto Get, auto Method>
int reloadVia(CInstanceMgr& m) {
  const auto slot = (m.*Get)();
  if (!slot) return -1;
  return succeeded(((*slot).*Method)()) ? 1 : 0;
}

std::atomic<LiveReload*> s_made{nullptr};

}  // namespace

// Which objects read which file. Every reload is memory only: no carry-over,
// no write, no legacy clean-up (those stay with the start). Objects whose
// file no other writer changes at run time (databases, keys, certificates)
// have no row, nor has CTimeCfg: it keeps nothing in memory (the zone and
// the clock are asked of the system at each call). The logging row re-reads
// the log settings only where the library configured log4cxx from that file;
// a host that configured log4cxx itself keeps its own configuration.
const ReloadRow* reloadRows(size_t* count) {
  using M = CInstanceMgr;
  constexpr ReloadRow::Order kTxn = ReloadRow::kInFileTxn;
  static const ReloadRow kRows[] = {
      {"Config.xml", "CBasicCfg", kTxn, reloadVia<&M::getBasicCfg, &CBasicCfg::reloadFile>},
      {"Config.xml", "CAlarmMonitorCfg", kTxn, reloadVia<&M::getAlarmMonitorCfg, &CAlarmMonitorCfg::reloadFile>},
      {"Config.xml", "CNetworkCfg", kTxn, reloadVia<&M::getNetworkCfg, &CNetworkCfg::reloadFile>},
      {"Config.xml", "CNetworkCfg address table", kTxn, reloadVia<&M::getNetworkCfg, &CNetworkCfg::reloadAddrList>},
      {"Config.xml", "CEventSubCfg", kTxn, reloadVia<&M::getEventSubCfg, &CEventSubCfg::reloadFile>},
      {"Config.xml", "CMetadataCfg", kTxn, reloadVia<&M::getMetadataCfg, &CMetadataCfg::reloadFile>},
      {"Config.xml", "CWispListenCfg", kTxn, reloadVia<&M::getWispListenCfg, &CWispListenCfg::reloadFile>},
      // The loads of these three read without writing: they serve as the
      // reload.
      {"Config.xml", "CHttpHostCfg", kTxn, reloadVia<&M::getHttpHostCfg, &CHttpHostCfg::loadFile>},
      {"Config.xml", "CMaintain", kTxn, reloadVia<&M::getMaintain, &CMaintain::loadFile>},
      {"Config.xml", "CNATGateway", kTxn, reloadVia<&M::getNATGateway, &CNATGateway::loadFile>},
      {"Config.xml", "CDeviceMgmtCfg", ReloadRow::kOwnLockFirst,
       reloadVia<&M::getDeviceMgmtCfg, &CDeviceMgmtCfg::reloadFile>},
      {"QAPIConfig.xml", "CQAPICfg", kTxn, reloadVia<&M::getQAPICfg, &CQAPICfg::reloadFile>},
      {"PrivateConfig.xml", "CPrivateCfg", kTxn, reloadVia<&M::getPrivateCfg, &CPrivateCfg::reloadFile>},
      {"log4cxx.properties", "logging", kTxn,
       [](M&) { return xlog_reload(OX_BASE_GetCurDir() + "log4cxx.properties") ? 1 : -1; }},
  };
  *count = sizeof kRows / sizeof kRows[0];
  return kRows;
}

LiveReload& LiveReload::Instance() {
  // The instance manager exists first, so it outlives this object at exit
  // and a reload under way never sees it destroyed.
  CSingleton<CInstanceMgr>::Instance();
  static LiveReload instance;
  s_made.store(&instance, std::memory_order_release);
  return instance;
}

LiveReload* LiveReload::IfMade() { return s_made.load(std::memory_order_acquire); }

LiveReload::~LiveReload() {
  stop();
  s_made.store(nullptr, std::memory_order_release);
}

int LiveReload::enable(bool on) {
  if (!on) return stop();
  std::lock_guard<std::mutex> lock(m_control);
  if (m_running.load()) return 1;
  OxBase::Env* env = OxBase::Env::Current();
  const std::string dir = OX_BASE_GetCurDir();
  const int watch = env->OpenDirWatch(dir);
  if (watch < 0) {
    xlog_format(5, "OXW", "[%s(%d)] watch of %s failed, live reload stays off[errno=%d]", "enable",
                __LINE__, dir.c_str(), OSL_GetSystemLastError());
    return 0;
  }
  m_env = env;
  m_watch = watch;
  m_dir = dir;
  m_stopping.store(false);
  try {
    m_notifier = std::thread([this] { notifyLoop(); });
    m_notifierId.store(m_notifier.get_id());
    m_watcher = std::thread([this] { watchLoop(); });
  } catch (...) {
    m_stopping.store(true);
    m_queueCv.notify_all();
    if (m_notifier.joinable()) m_notifier.join();
    m_env->CloseDirWatch(m_watch);
    m_watch = -1;
    xlog_format(5, "OXW", "[%s(%d)] live reload thread could not start", "enable", __LINE__);
    return 0;
  }
  m_running.store(true, std::memory_order_release);
  xlog_format(3, "OXW", "[%s(%d)] live reload watching %s", "enable", __LINE__, dir.c_str());
  return 1;
}

bool LiveReload::onNotifyThread() const { return std::this_thread::get_id() == m_notifierId.load(); }

int LiveReload::stop() {
  if (onNotifyThread()) return 0;
  std::lock_guard<std::mutex> lock(m_control);
  if (!m_running.load()) return 1;
  {
    std::lock_guard<std::mutex> q(m_queueMutex);
    m_stopping.store(true);
  }
  m_env->WakeDirWatch(m_watch);
  m_queueCv.notify_all();
  if (m_watcher.joinable()) m_watcher.join();
  if (m_notifier.joinable()) m_notifier.join();
  m_env->CloseDirWatch(m_watch);
  m_watch = -1;
  m_notifierId.store(std::thread::id());
  {
    std::lock_guard<std::mutex> q(m_queueMutex);
    m_queue.clear();
  }
  m_running.store(false, std::memory_order_release);
  return 1;
}

std::set<std::string> LiveReload::changedFiles(const std::vector<OxBase::DirEvent>& events) {
  std::set<std::string> files;
  std::set<uint32_t> ownRenames;  // cookies of renames of this process's temporaries
  for (const OxBase::DirEvent& e : events) {
    std::string target;
    switch (e.kind) {
      case OxBase::DirEvent::kMovedOut:
        if (OxBase::IsOwnTemporary(e.name, &target)) ownRenames.insert(e.cookie);
        break;
      case OxBase::DirEvent::kMovedIn:
        if (ownRenames.count(e.cookie) == 0 && inTable(e.name)) files.insert(e.name);
        break;
      case OxBase::DirEvent::kWritten:
        // The library never writes a file in place: this is another writer.
        if (inTable(e.name)) files.insert(e.name);
        break;
      case OxBase::DirEvent::kOverflow: {
        size_t count = 0;
        const ReloadRow* rows = reloadRows(&count);
        for (size_t i = 0; i < count; ++i) files.insert(rows[i].file);
        break;
      }
      default:
        break;
    }
  }
  return files;
}

bool LiveReload::reloadFile(const std::string& file) {
  size_t count = 0;
  const ReloadRow* rows = reloadRows(&count);
  bool any = false;
  try {
    CInstanceMgr& mgr = *CSingleton<CInstanceMgr>::Instance();
    // Runs the rows of the file that keep `order`.
    auto runRows = [&](ReloadRow::Order order) {
      for (size_t i = 0; i < count; ++i) {
        if (file != rows[i].file || rows[i].order != order) continue;
        int rc = 0;
        try {
          rc = rows[i].reload(mgr);
        } catch (...) {
          rc = 0;
        }
        if (rc == 1) {
          any = true;
          xlog_format(2, "OXW", "[%s(%d)] %s reloaded from %s", "reloadFile", __LINE__, rows[i].object,
                      file.c_str());
        } else if (rc == 0) {
          xlog_format(4, "OXW", "[%s(%d)] %s kept its values: %s gave none", "reloadFile", __LINE__,
                      rows[i].object, file.c_str());
        }
      }
    };
    {
      const std::string path = OX_BASE_GetCurDir() + file;
      // Serialised with this process's setters of the file: a setter's write
      // and its memory update are then either wholly before the reload
      // (which reads them back) or wholly after it (and win).
      ConfigFileTxn txn(path);
      // Only XML files are checked whole before their objects read them; the
      // properties reader takes what it can of any text.
      OxBase::CXmlBase probe;
      const bool isXml = file.size() > 4 && file.compare(file.size() - 4, 4, ".xml") == 0;
      const bool parses = !isXml || probe.LoadFile(path) == 1;
      {
        std::lock_guard<std::mutex> lock(m_failMutex);
        if (!parses) {
          // Logged once per bad version streak; the old values stay.
          if (m_failed.insert(file).second) {
            xlog_format(4, "OXW", "[%s(%d)] %s does not parse, the values in memory are kept",
                        "reloadFile", __LINE__, file.c_str());
          }
          return false;
        }
        m_failed.erase(file);
      }
      runRows(ReloadRow::kInFileTxn);
    }
    runRows(ReloadRow::kOwnLockFirst);
  } catch (...) {
    return false;
  }
  if (any && running()) {
    std::lock_guard<std::mutex> q(m_queueMutex);
    m_queue.push_back(file);
    m_queueCv.notify_one();
  }
  return any;
}

void LiveReload::watchLoop() {
  std::vector<OxBase::DirEvent> events;
  bool readFailureLogged = false;
  while (!m_stopping.load()) {
    events.clear();
    const int n = m_env->ReadDirWatch(m_watch, -1, &events);
    if (m_stopping.load()) break;
    if (n < 0) {
      if (!readFailureLogged) {
        xlog_format(5, "OXW", "[%s(%d)] reading the watch of %s failed[errno=%d]", "watchLoop", __LINE__,
                    m_dir.c_str(), OSL_GetSystemLastError());
        readFailureLogged = true;
      }
      // Not a busy loop: wait for a stop, or try again a little later.
      std::vector<OxBase::DirEvent> none;
      (void)m_env->ReadDirWatch(m_watch, 100, &none);
      continue;
    }
    if (n == 0) continue;
    const uint64_t first = m_env->TickMillis();
    while (!m_stopping.load() && m_env->TickMillis() - first < kMaxBurstMillis) {
      if (m_env->ReadDirWatch(m_watch, kQuietMillis, &events) <= 0) break;
    }
    if (m_stopping.load()) break;
    for (const std::string& file : changedFiles(events)) reloadFile(file);
  }
}

void LiveReload::notifyLoop() {
  for (;;) {
    std::string file;
    {
      std::unique_lock<std::mutex> q(m_queueMutex);
      m_queueCv.wait(q, [this] { return m_stopping.load() || !m_queue.empty(); });
      if (m_stopping.load()) return;
      file = std::move(m_queue.front());
      m_queue.pop_front();
    }
    std::lock_guard<std::recursive_mutex> lock(m_callbackMutex);
    // A copy: a callback may add or remove callbacks.
    const auto callbacks = m_callbacks;
    for (const auto& cb : callbacks) {
      try {
        cb.first(file.c_str(), cb.second);
      } catch (...) {
        xlog_format(4, "OXW", "[%s(%d)] a reload callback threw for %s", "notifyLoop", __LINE__,
                    file.c_str());
      }
    }
  }
}

int LiveReload::addCallback(OX_ConfigMgr_ReloadCallback cb, void* context) {
  if (!cb) return 0;
  std::lock_guard<std::recursive_mutex> lock(m_callbackMutex);
  m_callbacks.emplace_back(cb, context);
  return 1;
}

int LiveReload::removeCallback(OX_ConfigMgr_ReloadCallback cb, void* context) {
  std::lock_guard<std::recursive_mutex> lock(m_callbackMutex);
  auto it = std::find(m_callbacks.begin(), m_callbacks.end(), std::make_pair(cb, context));
  if (it == m_callbacks.end()) return 0;
  m_callbacks.erase(it);
  return 1;
}

}  // namespace OxConfigMgr
