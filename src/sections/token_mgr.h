// The alarm-monitor token in force, process-wide.
#ifndef OXCFG_SECTIONS_TOKEN_MGR_H
#define OXCFG_SECTIONS_TOKEN_MGR_H

#include <oxconfigmgr/OxMutex.h>

#include <string>

#include "frame/singleton.h"

namespace OxConfigMgr {

// Reached through CSingleton<CTokenMgr>::Instance(). All members are
// thread-safe; the mutex is never held while a configuration file is
// accessed.
class CTokenMgr : public CSingleton<CTokenMgr> {
 public:
  CTokenMgr();
  ~CTokenMgr();

  // Puts the token of the started alarm monitor object in force. 0, or -1
  // when the library has no alarm monitor object.
  int setToken();
  // Makes a new token (64 lower-case hexadecimal characters: the SHA-256 of
  // a random number, the tick and a process-wide counter, so two tokens made
  // in the same tick differ), puts it in force and returns a copy.
  std::string updateToken();
  // True when `token` equals the token in force (compared in constant time
  // for equal lengths). Never true before a token was set.
  bool checkToken(const std::string& token);

 private:
  OSL_Mutex m_mutex;
  std::string m_token;  // guarded by m_mutex
};

}  // namespace OxConfigMgr

#endif  // OXCFG_SECTIONS_TOKEN_MGR_H
