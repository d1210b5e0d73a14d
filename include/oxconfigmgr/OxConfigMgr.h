// oxconfigmgr: the configuration manager of the device-access gateway.
//
// A host process changes into the configuration directory, calls
// OX_ConfigMgr_Start once from one thread, then takes shared handles to the
// configuration objects with the OX_ConfigMgr_Get... functions and calls
// their getters and setters from any thread. Handles may be kept for the life
// of the process. No function of the library lets an exception escape.
//
// A process that loads this library must not also load the system
// libsqlite3: the library uses an encrypting SQLite build that exports the
// same symbols.
#ifndef OXCONFIGMGR_OXCONFIGMGR_H
#define OXCONFIGMGR_OXCONFIGMGR_H

#include <oxconfigmgr/OxExport.h>
#include <oxconfigmgr/OxLogLevel.h>
#include <oxconfigmgr/OxMaintain.h>
#include <oxconfigmgr/OxMutex.h>
#include <oxconfigmgr/OxOpenSSLCertificate.h>
#include <oxconfigmgr/OxPrivateCfg.h>
#include <oxconfigmgr/OxSecurityStatus.h>
#include <oxconfigmgr/OxUserCfg.h>
#include <oxconfigmgr/OxWbAes.h>
#include <oxconfigmgr/OxBasicCfg.h>
#include <oxconfigmgr/OxSwitchCfg.h>
#include <oxconfigmgr/OxAlarmMonitorCfg.h>
#include <oxconfigmgr/OxCfgImportAndExport.h>
#include <oxconfigmgr/OxTimeCfg.h>
#include <oxconfigmgr/OxARCCfg.h>
#include <oxconfigmgr/OxConvertCodeCfg.h>

#include <memory>
#include <string>

namespace OxConfigMgr {
class CBasicCfg;
class CMaintain;
class CPrivateCfg;
class CUserCfg;
class CNATGateway;
class CNetworkCfg;
class COpenSSLCertificate;
class CARCCfg;
class CConvertCodeCfg;
class CTimeCfg;
class CQAPICfg;
class CAlarmMonitorCfg;
class CHttpHostCfg;
class CEventSubCfg;
class CWispListenCfg;
class CCfgImportAndExport;
class CDeviceMgmtCfg;
class CStorageConfig;
class CMetadataCfg;
}  // namespace OxConfigMgr

#include <oxconfigmgr/OxNATGateway.h>
#include <oxconfigmgr/OxNetworkCfg.h>
#include <oxconfigmgr/OxStorageConfig.h>

extern "C" {

// Does nothing; returns 1. Thread-safe.
OXCFG_API int OX_ConfigMgr_Init(void);

// Loads the configuration of the current working directory: carries settings
// over from an upgrade's "Config_Backup.xml", then creates and loads every
// configuration object in a fixed order, stopping at the first failure (which
// is logged). Returns 1 when everything loaded, 0 otherwise. Calling it again
// after a failure resumes at the failed step. Call once, from one thread,
// before any other thread uses the getters.
OXCFG_API int OX_ConfigMgr_Start(void);

// Stop live reload when it is on (see below); nothing else (objects live
// until the library is unloaded). Return 1; 0 only when called from a reload
// callback, where nothing is stopped.
OXCFG_API int OX_ConfigMgr_Stop(void);
OXCFG_API int OX_ConfigMgr_Uninit(void);

// ---- live reload (off unless a host switches it on) -------------------------
//
// With live reload on, one thread of the library watches the working
// directory (the one in force when it is switched on). When another process
// replaces a configuration file, the objects that read it take the file's
// values in memory, in place: handles the host already holds answer the new
// values, each getter one whole old or new value. A reload never writes a
// file and never runs an upgrade's carry-over; this process's own writes do
// not trigger one. A burst of replacements costs one reload per object. A
// file that does not parse (a hand edit in progress) leaves the values in
// memory as they were and is logged once; the next good version is taken.
// Files reloaded: "Config.xml" (product name, alarm monitor, network ports,
// mapping switches and address table, event subscription, metadata, Wisp
// listening, HTTP host notification, device management, maintenance and the
// NAT gateway ranges), "QAPIConfig.xml", "PrivateConfig.xml", and
// "log4cxx.properties" where the library configured log4cxx from it (a host
// that configured log4cxx itself keeps its configuration).

// 1 switches it on (returns 1, or 0 when the directory cannot be watched,
// logged), 0 switches it off (returns 1). Thread-safe. Switching off, Stop
// and Uninit wait for a reload under way and for a running callback, so
// they must not be called from a callback (they then return 0).
OXCFG_API int OX_ConfigMgr_EnableLiveReload(int on);

// Called after the objects of a replaced file took its values, once per file
// per burst, with the file's name ("Config.xml") and the context given at
// registration. It runs on a thread of the library, one call at a time, after
// the reload; a slow callback delays later callbacks, never the reloads. In
// it the host may call getters and setters and add or remove callbacks; it
// must not switch live reload off or call Stop or Uninit. An exception that
// leaves it is caught and logged; the reloads go on.
typedef void (*OX_ConfigMgr_ReloadCallback)(const char* fileName, void* context);
// 1, or 0 for a null callback. The same pair may be added more than once
// (then called as often).
OXCFG_API int OX_ConfigMgr_AddReloadCallback(OX_ConfigMgr_ReloadCallback callback, void* context);
// Removes one registration of the pair: 1, or 0 when there is none. When it
// returns (from another thread than the callback's), the callback is not
// running and will not be called again, so the context may be freed.
OXCFG_API int OX_ConfigMgr_RemoveReloadCallback(OX_ConfigMgr_ReloadCallback callback, void* context);

}  // extern "C"

// Getters. Each returns a copy of the manager's handle: empty before a
// successful start of that object. Lock-free and thread-safe once
// OX_ConfigMgr_Start has returned.

// Software version of the configuration carried over at the last start
// ("" when there was no backup or it had no version).
OXCFG_API std::string OX_ConfigMgr_GetBackupVersion();
OXCFG_API std::shared_ptr<OxConfigMgr::CBasicCfg> OX_ConfigMgr_GetBasicCfg();
// The maintenance object (log switch and level, log clean-up).
OXCFG_API std::shared_ptr<OxConfigMgr::CMaintain> OX_ConfigMgr_GetLogCfg();
OXCFG_API std::shared_ptr<OxConfigMgr::CPrivateCfg> OX_ConfigMgr_GetPrivateCfg();
OXCFG_API std::shared_ptr<OxConfigMgr::CUserCfg> OX_ConfigMgr_GetUserCfg();
OXCFG_API std::shared_ptr<OxConfigMgr::CNATGateway> OX_ConfigMgr_GetNATGateway();
OXCFG_API std::shared_ptr<OxBase::CSecurityStatus> OX_ConfigMgr_GetSecurityStatus();
OXCFG_API std::shared_ptr<OxConfigMgr::CNetworkCfg> OX_ConfigMgr_GetNetworkCfg();
OXCFG_API std::shared_ptr<OxConfigMgr::COpenSSLCertificate> OX_ConfigMgr_GetOpenSSLCert();
// Always empty: the host constructs its CARCCfg and CConvertCodeCfg itself.
OXCFG_API std::shared_ptr<OxConfigMgr::CARCCfg> OX_ConfigMgr_GetARCCfg();
OXCFG_API std::shared_ptr<OxConfigMgr::CConvertCodeCfg> OX_ConfigMgr_GetConvertCodeCfg();
OXCFG_API std::shared_ptr<OxConfigMgr::CTimeCfg> OX_ConfigMgr_GetTimeCfg();
OXCFG_API std::shared_ptr<OxConfigMgr::CQAPICfg> OX_ConfigMgr_GetQAPICfg();
OXCFG_API std::shared_ptr<OxConfigMgr::CAlarmMonitorCfg> OX_ConfigMgr_GetAlarmMonitorCfg();
OXCFG_API std::shared_ptr<OxConfigMgr::CHttpHostCfg> OX_ConfigMgr_GetHttpHostCfg();
OXCFG_API std::shared_ptr<OxConfigMgr::CEventSubCfg> OX_ConfigMgr_GetEventSubCfg();
OXCFG_API std::shared_ptr<OxConfigMgr::CWispListenCfg> OX_ConfigMgr_GetWispListenCfg();
OXCFG_API std::shared_ptr<OxConfigMgr::CCfgImportAndExport> OX_ConfigMgr_GetCfgImportAndExport();
OXCFG_API std::shared_ptr<OxConfigMgr::CDeviceMgmtCfg> OX_ConfigMgr_GetDeviceMgmtCfg();
OXCFG_API std::shared_ptr<OxConfigMgr::CStorageConfig> OX_ConfigMgr_GetStorageConfig();
OXCFG_API std::shared_ptr<OxConfigMgr::CMetadataCfg> OX_ConfigMgr_GetMetadataConfig();

#endif  // OXCONFIGMGR_OXCONFIGMGR_H
