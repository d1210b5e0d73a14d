#include "core/instance_mgr.h"

#include <oxconfigmgr/OxAlarmMonitorCfg.h>
#include <oxconfigmgr/OxBasicCfg.h>
#include <oxconfigmgr/OxCfgImportAndExport.h>
#include <oxconfigmgr/OxMaintain.h>
#include <oxconfigmgr/OxNATGateway.h>
#include <oxconfigmgr/OxNetworkCfg.h>
#include <oxconfigmgr/OxOpenSSLCertificate.h>
#include <oxconfigmgr/OxPrivateCfg.h>
#include <oxconfigmgr/OxStorageConfig.h>
#include <oxconfigmgr/OxSwitchCfg.h>
#include <oxconfigmgr/OxTimeCfg.h>
#include <oxconfigmgr/OxUserCfg.h>

#include <cstring>
#include <exception>

#include "db/db_init.h"
#include "db/db_key.h"
#include "platform/file_util.h"
#include "platform/osl.h"
#include "platform/oxbase.h"
#include "platform/secure_wipe.h"
#include "platform/xlog.h"
#include "sections/token_mgr.h"
#include "transfer/import_journal.h"

namespace OxConfigMgr {

namespace {

// Creates the object of an empty slot and loads it; the slot is filled only
// when the load succeeded, so a later start retries a failed load. A filled
// slot is neither re-created nor re-loaded.
template <class T, class Load>
bool createAndLoad(std::shared_ptr<T>& slot, Load&& load) {
  if (slot) return true;
  auto obj = std::make_shared<T>();
  if (!load(*obj)) return false;
  slot = std::move(obj);
  return true;
}

template <class T>
bool createOnly(std::shared_ptr<T>& slot) {
  if (!slot) slot = std::make_shared<T>();
  return true;
}

}  // namespace

// One row per start step, run in order. `failure` is logged at level 5 with
// "start" as the function when `run` fails (null: the step fails silently);
// the start then returns 0 at once, leaving the slots filled so far. Steps
// that only load into an empty slot are skipped by a retry (see
// createAndLoad), so a retry resumes at the failed step. Guarded rows run
// under the start's exception guard (logged, start returns 0); an exception
// from an unguarded row reaches the caller of start.
struct CInstanceMgr::StartStep {
  int number;
  const char* failure;
  int line;  // source line of the row, logged as the failure's line
  bool guarded;
  bool (*run)(CInstanceMgr& m);
};

#define OXCFG_STEP(number, failure, ...) {number, failure, __LINE__, true, __VA_ARGS__}
#define OXCFG_UNGUARDED_STEP(number, ...) {number, nullptr, __LINE__, false, __VA_ARGS__}

const CInstanceMgr::StartStep* CInstanceMgr::startSteps(size_t* count) {
  using M = CInstanceMgr;
  static const StartStep kSteps[] = {
      // Temporary files of writers that were killed mid-way are never
      // completed: the directory sheds them before anything reads it.
      OXCFG_UNGUARDED_STEP(0, [](M&) {
        OxBase::RemoveStaleTemporariesIn(OX_BASE_GetCurDir());
        return true;
      }),
      // An import that died half-way is undone before anything reads the
      // files it was changing; a journal that cannot be put back stops the
      // start rather than let it run on a mix of old and new files.
      OXCFG_STEP(0, "[%s(%d)] import journal restore failed", [](M&) {
        return transfer::RecoverImportJournal(OX_BASE_GetCurDir()) != transfer::JournalRecovery::kFailed;
      }),
      // The carry-over of "Config_Backup.xml"; its outcome is not examined.
      OXCFG_UNGUARDED_STEP(1, [](M& m) {
        m.copyBackupConfig();
        return true;
      }),
      // The private configuration holds the key of the configuration database.
      OXCFG_STEP(2, "[%s(%d)] CPrivateCfg loadFile falied",
       [](M& m) { return createAndLoad(m.m_privateCfg, [](CPrivateCfg& o) { return o.loadFile(); }); }),
      // Both databases are brought to the current schema on every start,
      // whatever the slots hold.
      OXCFG_STEP(3, "[%s(%d)] InitDB falied",
       [](M&) { return CSingleton<CGatewayDBInitManager>::Instance()->InitDB(1) != 0; }),
      OXCFG_STEP(4, "[%s(%d)] InitSyslog falied",
       [](M&) { return CSingleton<CSyslogDBInitManager>::Instance()->InitDB(0) != 0; }),
      OXCFG_STEP(5, "[%s(%d)] CBasicCfg loadFile falied",
       [](M& m) { return createAndLoad(m.m_basicCfg, [](CBasicCfg& o) { return o.loadFile() == 1; }); }),
      // Maintenance opens the system-log connection; it reports with the
      // user step's text.
      OXCFG_STEP(6, "[%s(%d)] CUserCfg loadFile falied",
       [](M& m) { return createAndLoad(m.m_maintain, [](CMaintain& o) { return o.loadFile() && o.start(); }); }),
      OXCFG_STEP(7, "[%s(%d)] CUserCfg loadFile falied",
       [](M& m) { return createAndLoad(m.m_userCfg, [](CUserCfg& o) { return o.loadDatabase(0); }); }),
      OXCFG_STEP(8, "[%s(%d)] CNATGateway loadFile falied",
       [](M& m) { return createAndLoad(m.m_natGateway, [](CNATGateway& o) { return o.loadFile(); }); }),
      OXCFG_STEP(9, nullptr, [](M& m) { return createOnly(m.m_securityStatus); }),
      // The message names loadFile although start() runs.
      OXCFG_STEP(10, "[%s(%d)] CNetworkCfg loadFile falied",
       [](M& m) { return createAndLoad(m.m_networkCfg, [](CNetworkCfg& o) { return o.start(); }); }),
      OXCFG_STEP(11, nullptr, [](M& m) { return createOnly(m.m_openSSLCert); }),
      OXCFG_STEP(12, "[%s(%d)] CTimeCfg start falied",
       [](M& m) { return createAndLoad(m.m_timeCfg, [](CTimeCfg& o) { return o.start() == 1; }); }),
      OXCFG_STEP(13, "[%s(%d)] CQAPICfg loadFile falied",
       [](M& m) { return createAndLoad(m.m_qapiCfg, [](CQAPICfg& o) { return o.loadFile() == 1; }); }),
      // The alarm monitor's token is put in force when the object is made; a
      // restart does not touch it (only a refresh changes the token).
      OXCFG_STEP(14, "[%s(%d)] CAlarmMonitorCfg loadFile falied",
       [](M& m) {
         const bool isNew = !m.m_alarmMonitorCfg;
         if (!createAndLoad(m.m_alarmMonitorCfg, [](CAlarmMonitorCfg& o) { return o.loadFile() == 1; }))
           return false;
         if (isNew) CSingleton<CTokenMgr>::Instance()->setToken();
         return true;
       }),
      OXCFG_STEP(15, "[%s(%d)] CHttpHostCfg loadFile falied",
       [](M& m) { return createAndLoad(m.m_httpHostCfg, [](CHttpHostCfg& o) { return o.loadFile() == 1; }); }),
      OXCFG_STEP(16, "[%s(%d)] CEventSubCfg loadFile falied",
       [](M& m) { return createAndLoad(m.m_eventSubCfg, [](CEventSubCfg& o) { return o.loadFile() == 1; }); }),
      OXCFG_STEP(17, "[%s(%d)] CWispListenCfg loadFile falied",
       [](M& m) { return createAndLoad(m.m_wispListenCfg, [](CWispListenCfg& o) { return o.loadFile() == 1; }); }),
      OXCFG_STEP(18, nullptr, [](M& m) { return createOnly(m.m_cfgImportAndExport); }),
      OXCFG_STEP(19, "[%s(%d)] CDeviceMgmtCfg loadFile falied",
       [](M& m) { return createAndLoad(m.m_deviceMgmtCfg, [](CDeviceMgmtCfg& o) { return o.loadFile() == 1; }); }),
      // Fresh storage credentials at every start of the process; a failure
      // is not logged here (the object logs its own).
      OXCFG_STEP(20, nullptr,
       [](M& m) { return createAndLoad(m.m_storageConfig, [](CStorageConfig& o) { return o.start(); }); }),
      OXCFG_STEP(21, "[%s(%d)] CMetadataCfg loadFile falied",
       [](M& m) { return createAndLoad(m.m_metadataCfg, [](CMetadataCfg& o) { return o.loadFile() == 1; }); }),
  };
#undef OXCFG_STEP
#undef OXCFG_UNGUARDED_STEP
  *count = sizeof kSteps / sizeof kSteps[0];
  return kSteps;
}

// The configuration database's key is the private configuration's storage
// key: the databases get it through this provider, not by reaching up here.
CInstanceMgr::CInstanceMgr() {
  SetConfigDbKeyProvider([this](unsigned char out[kDBKeyLength]) {
    std::shared_ptr<CPrivateCfg> priv = m_privateCfg;
    if (!priv) return false;
    tagEncryptInfo info;
    OxBase::ScopedWipe wipe(&info, sizeof info);
    priv->getEncryptParams(info);
    std::memcpy(out, info.storageKey, kDBKeyLength);
    return true;
  });
}

// Members go in reverse order: the backup version first, then slot 20 down
// to slot 1.
CInstanceMgr::~CInstanceMgr() = default;

int CInstanceMgr::stop() { return 1; }

int CInstanceMgr::start() {
  xlog_configure_from_cwd();
  size_t count = 0;
  const StartStep* steps = startSteps(&count);
  for (size_t i = 0; i < count; ++i) {
    const StartStep& step = steps[i];
    bool ok = false;
    if (!step.guarded) {
      ok = step.run(*this);
    } else {
      try {
        ok = step.run(*this);
      } catch (const std::exception& e) {
        xlog_format(5, "OXW", "[%s(%d)] [err=%s]start CInstanceMgr failed", "start", __LINE__, e.what());
        return 0;
      } catch (...) {
        xlog_format(5, "OXW", "[%s(%d)] [errCode=%d]start CInstanceMgr failed", "start", __LINE__,
                    OSL_GetSystemLastError());
        return 0;
      }
    }
    if (ok) continue;
    if (step.failure) xlog_format(5, "OXW", step.failure, "start", step.line);
    return 0;
  }
  return 1;
}

}  // namespace OxConfigMgr
