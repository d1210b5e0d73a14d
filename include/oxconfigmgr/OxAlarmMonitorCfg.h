// The alarm monitoring function: its switch and the token its clients
// present.
#ifndef OXCONFIGMGR_OXALARMMONITORCFG_H
#define OXCONFIGMGR_OXALARMMONITORCFG_H

#include <oxconfigmgr/OxExport.h>

#include <cstdint>
#include <memory>
#include <string>

namespace OxConfigMgr {

// Copied whole.
struct tagAlarmMonitorCnf {
  uint32_t enable;  // 0 or 1
  char token[65];   // at most 64 characters
  tagAlarmMonitorCnf() : enable(0), token() {}
};

// Section "AlarmMonitor" of "Config.xml" with "Enable" ("1" is on, any other
// text off) and "token", both required.
//
// The token in force is held by the process-wide token manager: it is taken
// from the file when the library starts and replaced by
// refreshAlarmMonitorCfg. A token stored with setAlarmMonitorCfg reaches the
// file and the record but is checked against only after the next start.
//
// Thread-safety: every method may run on any thread. Getters are lock-free
// and see the whole record as one setter left it, never a mix of two; the
// setters are serialised with each other and with every other change of
// "Config.xml".
class OXCFG_API CAlarmMonitorCfg {
 public:
  CAlarmMonitorCfg();
  ~CAlarmMonitorCfg();
  CAlarmMonitorCfg(const CAlarmMonitorCfg&) = delete;
  CAlarmMonitorCfg& operator=(const CAlarmMonitorCfg&) = delete;

  // Reads the section; an empty "token" is replaced by a new one and
  // written back. 1, or 0 when the file cannot be read, an element is
  // missing or the new token cannot be written. Not thread-safe: run once.
  int loadFile();
  // Reads "Enable" and a non-empty "token" again from a "Config.xml" that
  // another process replaced: memory only, no token made, nothing written.
  // 1, or 0 with memory untouched when the file does not parse or the
  // section lacks "Enable".
  int reloadFile();
  // Copies the record into `out`; returns 0.
  int getAlarmMonitorCfg(tagAlarmMonitorCnf& out) const;
  // Replaces the record with `in` (token cut to 64 characters), then writes
  // it. 0, or 9 when the file could not be written; the record keeps the new
  // values even then. The token in force does not change.
  int setAlarmMonitorCfg(const tagAlarmMonitorCnf& in);
  // Makes a new token, puts it in force and in the record, then writes the
  // record. 0, or 9 when the file could not be written (the new token is in
  // force all the same).
  int refreshAlarmMonitorCfg();
  // 0 when the function is enabled and `token` equals the token in force;
  // otherwise 2049 (a wrong token is logged, a disabled function is not).
  int checkAlarmMonitorCfg(const std::string& token);
  // Writes the record ("Enable" as 0 or 1, "token") to "Config.xml". 1, or
  // 0 when the file cannot be read, lacks an element or cannot be written.
  int updateFile();

 private:
  struct State;
  std::unique_ptr<State> m_state;
};

}  // namespace OxConfigMgr

#endif  // OXCONFIGMGR_OXALARMMONITORCFG_H
