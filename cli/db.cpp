// oxcfg: the administrator account and the maintenance (log) settings.
#include <oxconfigmgr/OxConfigMgr.h>


#include <cstdio>
#include <string>
#include <vector>

#include "cli/cli.h"
#include "cli/secret_input.h"

namespace oxcfg {
namespace {

using namespace OxConfigMgr;

const char* const kLevelNames[] = {"ALL", "TRACE", "DEBUG", "INFO", "WARN", "ERROR", "FATAL", "OFF"};

bool parseOnOff(const std::string& text, int* value) {
  if (text == "on") *value = 1;
  else if (text == "off") *value = 0;
  else return false;
  return true;
}

std::string onOff(int value) { return value ? "on" : "off"; }

std::string meaningOfSetter(int code) {
  switch (code) {
    case 1: return "the element is missing from Config.xml, nothing was written";
    case 2: return "Config.xml could not be read";
    case 3: return "Config.xml could not be written";
    default: return "";
  }
}

// ---- show ------------------------------------------------------------------

// Never the hashes, the salt or the session password.
RegisterShow g_showUsers({"users", "Users", [](Rows& rows) {
                            auto users = OX_ConfigMgr_GetUserCfg();
                            if (!users) return false;
                            tagUserInfo info;
                            users->getUserInfo(info);
                            rows.emplace_back("name", users->getUserName());
                            rows.emplace_back("realm", users->getRealm());
                            rows.emplace_back("activated", users->isActivated() ? "yes" : "no");
                            rows.emplace_back("password level", std::to_string(info.PasswordLevel));
                            return true;
                          }});

RegisterShow g_showLog({"log", "Maintenance and logging", [](Rows& rows) {
                          auto log = OX_ConfigMgr_GetLogCfg();
                          if (!log) return false;
                          const int level = log->getLogLevel();
                          rows.emplace_back("logging", onOff(log->isLogEnable()));
                          rows.emplace_back("level", std::to_string(level) + " (" +
                                                         (level >= 0 && level <= 7 ? kLevelNames[level] : "OFF") +
                                                         ")");
                          rows.emplace_back("clean-up interval", std::to_string(log->getLogCleanupIntevalHour()) + " h");
                          rows.emplace_back("retention", std::to_string(log->getLogCleanupRetentionDay()) + " days");
                          rows.emplace_back("device messages verbatim", onOff(log->getLogDeviceTransparent()));
                          return true;
                        }});

// ---- commands ----------------------------------------------------------------

RegisterCommand g_passwd({"passwd", "[LEVEL]",
                          "set the admin password, read from the terminal (no echo) or standard input; "
                          "LEVEL is its strength grade, 0..255 (default 0)",
                          [](const std::vector<std::string>& args) {
                            long level = 0;
                            if (args.size() > 1 || (args.size() == 1 && !parseInt(args[0], 0, 255, &level))) {
                              return usageError("passwd takes only the password level (0..255); the password "
                                                "is read from the terminal or standard input");
                            }
                            auto users = OX_ConfigMgr_GetUserCfg();
                            if (!users) return usageError("users not started");
                            SecretLine password;
                            if (!readNewSecret("New password: ", "Retype new password: ", password)) return 2;
                            if (password.text[0] == '\0') return usageError("empty password");
                            int rc = users->setPassword(static_cast<tagPASSWORD_LEVEL>(level), password.text,
                                                        "admin");
                            return reportResult("passwd", rc, rc == 1 ? "password refused" : "");
                          }});

RegisterCommand g_logEnable({"set log enable", "on|off", "switch logging on or off",
                             [](const std::vector<std::string>& args) {
                               int value = 0;
                               if (args.size() != 1 || !parseOnOff(args[0], &value)) {
                                 return usageError("set log enable takes on or off");
                               }
                               int rc = OX_ConfigMgr_GetLogCfg()->enableLog(value);
                               return reportResult("set log enable", rc, meaningOfSetter(rc));
                             }});

RegisterCommand g_logLevel({"set log level", "0..7",
                            "log level: 0 ALL, 1 TRACE, 2 DEBUG, 3 INFO, 4 WARN, 5 ERROR, 6 FATAL, 7 OFF",
                            [](const std::vector<std::string>& args) {
                              long level = 0;
                              if (args.size() != 1 || !parseInt(args[0], 0, 7, &level)) {
                                return usageError("set log level takes a level from 0 to 7");
                              }
                              int rc = OX_ConfigMgr_GetLogCfg()->setLogLevel(static_cast<XLOG_LEVEL>(level));
                              return reportResult("set log level", rc, meaningOfSetter(rc));
                            }});

RegisterCommand g_logTransparent({"set log transparent", "on|off", "log device messages verbatim",
                                  [](const std::vector<std::string>& args) {
                                    int value = 0;
                                    if (args.size() != 1 || !parseOnOff(args[0], &value)) {
                                      return usageError("set log transparent takes on or off");
                                    }
                                    int rc = OX_ConfigMgr_GetLogCfg()->setLogDeviceTransparent(value);
                                    return reportResult("set log transparent", rc, meaningOfSetter(rc));
                                  }});

}  // namespace
}  // namespace oxcfg
