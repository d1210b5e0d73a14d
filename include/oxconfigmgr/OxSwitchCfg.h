// Feature switches: event subscription, metadata, Wisp listening, the QAPI
// device interface, the HTTP notification host and the kind of devices the
// gateway manages.
//
// Common to all classes here: loadFile runs once from the start of the
// library (not thread-safe, before the object is shared); getters answer from
// memory without locking; setters read the whole file, change it, write it
// back atomically and then update memory, serialised with every other change
// of the same file (across threads and processes), so concurrent setters of
// different values all persist. Setter codes: 0 done; 1 bad argument or an
// element that could not be changed; 2 the file could not be read; 3 it
// could not be written. After a failure memory is unchanged.
#ifndef OXCONFIGMGR_OXSWITCHCFG_H
#define OXCONFIGMGR_OXSWITCHCFG_H

#include <oxconfigmgr/OxExport.h>

#include <atomic>
#include <memory>
#include <string>

namespace OxConfigMgr {

// "Config"/"EventSubCfg"/"Enable" of "Config.xml". Without the section the
// switch is on and the section is written.
class OXCFG_API CEventSubCfg {
 public:
  CEventSubCfg();
  // 1, or 0 when "Config.xml" or its "Config" element cannot be read. A
  // missing "Enable" in a present section reads as 0; any non-zero number
  // as 1.
  int loadFile();
  // Writes "Enable" as "1" for any non-zero value, "0" otherwise; when the
  // section is missing it is added with the value's decimal text as given.
  // Memory then holds the value as given. Codes as above.
  int updateCfg(int value);
  // Copies the switch into `value`; returns 0.
  int getSubCfg(int& value) const;
  // Reads the switch again from a "Config.xml" that another process
  // replaced: memory only, nothing written (a missing section gives the
  // default the start would write). 1, or 0 with memory untouched when the
  // file does not parse.
  int reloadFile();

 private:
  std::atomic<int> m_enable;
};

// "Config"/"MetadataCfg"/"Enable" of "Config.xml". Without the section the
// switch is off and the section is written. Methods as CEventSubCfg.
class OXCFG_API CMetadataCfg {
 public:
  CMetadataCfg();
  // Load, change and read the switch, with the results of
  // CEventSubCfg::loadFile, updateCfg and getCfg.
  int loadFile();
  int updateCfg(int value);
  int getCfg(int& value) const;
  // As CEventSubCfg::reloadFile.
  int reloadFile();

 private:
  std::atomic<int> m_enable;
};

// "Config"/"WispListenCfg"/"Enable" of "Config.xml". Without the section
// the switch is off and the section is written. Methods as CEventSubCfg.
class OXCFG_API CWispListenCfg {
 public:
  CWispListenCfg();
  // Load, change and read the switch, with the results of
  // CEventSubCfg::loadFile, updateCfg and getCfg.
  int loadFile();
  int updateCfg(int value);
  int getCfg(int& value) const;
  // As CEventSubCfg::reloadFile.
  int reloadFile();

 private:
  std::atomic<int> m_enable;
};

// "Config"/"QAPIConfig" of "QAPIConfig.xml": "Enable" and "Mode" ("user" 1,
// "port" 2, "all" 3, any other text 0). The mode is changed only by editing
// the file.
class OXCFG_API CQAPICfg {
 public:
  CQAPICfg();
  // Carries "QAPIConfig_Backup.xml" over first (copyBackupConfig), then
  // reads the file. 1, or 0 when it cannot be read or lacks one of
  // "Config", "QAPIConfig", "Enable", "Mode".
  int loadFile();
  // The enable value as written in the file (not reduced to 0 or 1).
  int getQAPIParam() const;
  // 0 to 3, see above.
  int getQAPIMode() const;
  // Writes "Enable" (setFile), then keeps the value. 0, or 3 when the file
  // could not be read, lacks "Enable" or could not be written.
  int setQAPIParam(int value);
  // Reads "Enable" and "Mode" again from a "QAPIConfig.xml" that another
  // process replaced: memory only, no carry-over, nothing written or logged.
  // 1, or 0 with memory untouched when the file does not parse or lacks
  // one of the elements.
  int reloadFile();
  // Writes the decimal text of `value` as "Enable", memory untouched. 1 on
  // success, 0 on failure.
  int setFile(int value);
  // After an upgrade: merges the values of "QAPIConfig_Backup.xml" into
  // "QAPIConfig.xml" and deletes the backup. When either file cannot be read,
  // or the merged file cannot be written, the backup stays for the next try.
  void copyBackupConfig();

 private:
  std::atomic<int> m_enable;
  std::atomic<int> m_mode;
};

// The host that receives HTTP notifications. Copied whole.
struct tagHttpHostInfo {
  int enable;      // 0 or 1
  int port;        // 0 to 65535
  char ip[17];     // IPv4 text, at most 15 characters
  char url[2307];  // at most 2048 characters
  tagHttpHostInfo() : enable(0), port(0), ip(), url() {}
};

// "Config"/"HttpHostNotificationList"/"HttpHostNotification" of
// "Config.xml" with "Enable", "IP", "Port" and "url". The section must exist.
class OXCFG_API CHttpHostCfg {
 public:
  CHttpHostCfg();
  ~CHttpHostCfg();
  CHttpHostCfg(const CHttpHostCfg&) = delete;
  CHttpHostCfg& operator=(const CHttpHostCfg&) = delete;
  // 1, or 0 when "Config.xml" cannot be read or the section is missing.
  // Missing children keep their defaults; an over-long "IP" or "url" is cut
  // to 15 or 2048 characters; a non-numeric "Port" reads as 0.
  int loadFile();
  // Copies the record into `out`; returns 0. Lock-free and thread-safe: a
  // getter that overlaps setHttpHostInfo sees the whole old or the whole new
  // record, never a mix.
  int getHttpHostInfo(tagHttpHostInfo& out) const;
  // Returns 1 without touching anything for an empty or over-long (16 or
  // more characters) IP, an empty or over-long (2049 or more characters)
  // URL, or a port outside 0..65535. Otherwise writes the children present
  // in the file ("Enable" as 0 or 1) and replaces the record with `in`.
  // Codes as above.
  int setHttpHostInfo(const tagHttpHostInfo& in);

 private:
  struct State;
  std::unique_ptr<State> m_state;
};

// "Config"/"DeviceMgmt"/"Checked" of "Config.xml": "V" for encoding devices,
// "AC" for access control. The interface speaks "encodingDev" and
// "AccessControl".
class OXCFG_API CDeviceMgmtCfg {
 public:
  CDeviceMgmtCfg();
  // 1, or 0 when "Config.xml" cannot be read. Any text other than "V" and
  // "AC", and a missing element or section, is replaced by "AC" in the file
  // ("AccessControl"); 0 when that cannot be written.
  int loadFile();
  // "encodingDev" or "AccessControl" ("" before loadFile); returns 0.
  int getChecked(std::string& out) const;
  // Accepts "encodingDev" and "AccessControl" (others: 1). Codes as above.
  // Calls are serialised with each other and with loadFile (one lock order:
  // this class's mutex, then the file).
  int updateChecked(const std::string& kind);
  // Reads the kind again from a "Config.xml" that another process replaced:
  // memory only, nothing written (an unknown or missing kind is taken as
  // "AccessControl", as loadFile would, but not repaired in the file). 1, or
  // 0 with memory untouched when the file does not parse. Takes this class's
  // mutex and not the file's transaction, so it may run while other
  // read-modify-writes of the file are under way.
  int reloadFile();

 private:
  std::atomic<int> m_kind;  // 0 not loaded, 1 encodingDev, 2 AccessControl
};

}  // namespace OxConfigMgr

#endif  // OXCONFIGMGR_OXSWITCHCFG_H
