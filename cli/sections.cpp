// oxcfg: basic information, feature switches and the alarm monitor.
#include <oxconfigmgr/OxConfigMgr.h>

#include <climits>
#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

#include "cli/cli.h"

namespace oxcfg {
namespace {

using namespace OxConfigMgr;

const char kNotRead[] = "Config.xml could not be read";
const char kNotWritten[] = "Config.xml could not be written";

std::string onOff(int value) { return value ? "on" : "off"; }

const char* qapiModeName(int mode) {
  switch (mode) {
    case 1:
      return "user";
    case 2:
      return "port";
    case 3:
      return "all";
    default:
      return "none";
  }
}

// Copies `text` into a fixed field, keeping one character more than the
// library accepts when it is too long, so that the library refuses it rather
// than the copy cutting it to an acceptable length.
template <size_t N>
void copyArgument(char (&field)[N], const std::string& text) {
  const size_t n = text.size() < N - 1 ? text.size() : N - 1;
  std::memcpy(field, text.data(), n);
  field[n] = '\0';
}

// "on" or "off".
bool parseOnOff(const std::string& text, int* value) {
  if (text == "on")
    *value = 1;
  else if (text == "off")
    *value = 0;
  else
    return false;
  return true;
}

// ---- show ------------------------------------------------------------------

RegisterShow g_showBasic({"basic", "Basic information", [](Rows& rows) {
                            auto basic = OX_ConfigMgr_GetBasicCfg();
                            if (!basic) return false;
                            rows.emplace_back("product name", basic->getProductName());
                            rows.emplace_back("model", basic->getProductModel());
                            rows.emplace_back("software version", basic->getVersion());
                            rows.emplace_back("operating system", basic->getOperatingSystem());
                            rows.emplace_back("web session id", basic->getWebSessionID());
                            return true;
                          }});

RegisterShow g_showSwitches({"switches", "Feature switches", [](Rows& rows) {
                               auto eventSub = OX_ConfigMgr_GetEventSubCfg();
                               auto metadata = OX_ConfigMgr_GetMetadataConfig();
                               auto wisp = OX_ConfigMgr_GetWispListenCfg();
                               auto qapi = OX_ConfigMgr_GetQAPICfg();
                               if (!eventSub || !metadata || !wisp || !qapi) return false;
                               int value = 0;
                               eventSub->getSubCfg(value);
                               rows.emplace_back("event subscription", onOff(value));
                               metadata->getCfg(value);
                               rows.emplace_back("metadata", onOff(value));
                               wisp->getCfg(value);
                               rows.emplace_back("Wisp listening", onOff(value));
                               rows.emplace_back("QAPI", onOff(qapi->getQAPIParam()));
                               return true;
                             }});

RegisterShow g_showQapi({"qapi", "QAPI device interface", [](Rows& rows) {
                           auto qapi = OX_ConfigMgr_GetQAPICfg();
                           if (!qapi) return false;
                           rows.emplace_back("enable", std::to_string(qapi->getQAPIParam()));
                           rows.emplace_back("mode", qapiModeName(qapi->getQAPIMode()));
                           return true;
                         }});

RegisterShow g_showHttpHost({"httphost", "HTTP notification host", [](Rows& rows) {
                               auto host = OX_ConfigMgr_GetHttpHostCfg();
                               if (!host) return false;
                               tagHttpHostInfo info;
                               host->getHttpHostInfo(info);
                               rows.emplace_back("enable", std::to_string(info.enable));
                               rows.emplace_back("IP", info.ip);
                               rows.emplace_back("port", std::to_string(info.port));
                               rows.emplace_back("url", info.url);
                               return true;
                             }});

RegisterShow g_showDeviceMgmt({"devicemgmt", "Device management", [](Rows& rows) {
                                 auto mgmt = OX_ConfigMgr_GetDeviceMgmtCfg();
                                 if (!mgmt) return false;
                                 std::string kind;
                                 mgmt->getChecked(kind);
                                 rows.emplace_back("managed devices", kind);
                                 return true;
                               }});

// The token is what clients of the alarm monitor must present, so the
// operator is shown it.
RegisterShow g_showAlarmMonitor({"alarmmonitor", "Alarm monitor", [](Rows& rows) {
                                   auto alarm = OX_ConfigMgr_GetAlarmMonitorCfg();
                                   if (!alarm) return false;
                                   tagAlarmMonitorCnf cfg;
                                   alarm->getAlarmMonitorCfg(cfg);
                                   rows.emplace_back("enable", std::to_string(cfg.enable));
                                   rows.emplace_back("token", cfg.token);
                                   return true;
                                 }});

// ---- commands --------------------------------------------------------------

std::string switchMeaning(int code) {
  switch (code) {
    case 1:
      return "the Enable element could not be changed";
    case 2:
      return kNotRead;
    case 3:
      return kNotWritten;
    default:
      return "";
  }
}

RegisterCommand g_setProductName(
    {"set product-name", "NAME", "change the product name (at most 32 characters)",
     [](const std::vector<std::string>& args) {
       if (args.size() != 1) return usageError("set product-name takes one NAME");
       int rc = OX_ConfigMgr_GetBasicCfg()->setProductName(args[0].c_str());
       const char* meaning = rc == 1 ? "name of 33 or more characters, or Name could not be changed"
                             : rc == 2  ? kNotRead
                             : rc == 3  ? kNotWritten
                             : rc == 14 ? "Config.xml lacks Config/BasicInfo/Name"
                                        : "";
       return reportResult("set product-name", rc, meaning);
     }});

// One command per Config.xml switch.
Command switchCommand(const std::string& word, const std::string& help,
                      std::function<int(int)> update) {
  return {"set " + word, "on|off", help, [word, update](const std::vector<std::string>& args) {
            int value = 0;
            if (args.size() != 1 || !parseOnOff(args[0], &value)) {
              return usageError("set " + word + " takes on or off");
            }
            int rc = update(value);
            return reportResult("set " + word, rc, switchMeaning(rc));
          }};
}

RegisterCommand g_setEventSub(switchCommand("eventsub", "switch event subscription", [](int v) {
  return OX_ConfigMgr_GetEventSubCfg()->updateCfg(v);
}));
RegisterCommand g_setMetadata(switchCommand("metadata", "switch metadata forwarding", [](int v) {
  return OX_ConfigMgr_GetMetadataConfig()->updateCfg(v);
}));
RegisterCommand g_setWispListen(
    switchCommand("wisplisten", "switch listening on the Wisp protocol",
                  [](int v) { return OX_ConfigMgr_GetWispListenCfg()->updateCfg(v); }));

RegisterCommand g_setQapi({"set qapi", "on|off", "switch the QAPI device interface",
                           [](const std::vector<std::string>& args) {
                             int value = 0;
                             if (args.size() != 1 || !parseOnOff(args[0], &value)) {
                               return usageError("set qapi takes on or off");
                             }
                             int rc = OX_ConfigMgr_GetQAPICfg()->setQAPIParam(value);
                             return reportResult(
                                 "set qapi", rc,
                                 rc == 3
                                     ? "QAPIConfig.xml could not be read, lacks Enable or could "
                                       "not be written"
                                     : "");
                           }});

RegisterCommand g_setHttpHost(
    {"set httphost", "[--ip IP] [--port PORT] [--url URL] [--enable 0|1]",
     "change the HTTP notification host (unnamed values stay as they are)",
     [](const std::vector<std::string>& args) {
       auto host = OX_ConfigMgr_GetHttpHostCfg();
       tagHttpHostInfo info;
       host->getHttpHostInfo(info);
       if (args.empty()) return usageError("set httphost needs at least one option");
       for (size_t i = 0; i < args.size(); i += 2) {
         if (i + 1 >= args.size()) return usageError(args[i] + " needs a value");
         const std::string& value = args[i + 1];
         long number = 0;
         if (args[i] == "--ip") {
           copyArgument(info.ip, value);
         } else if (args[i] == "--url") {
           copyArgument(info.url, value);
         } else if (args[i] == "--port") {
           // The library judges the range; only non-numbers are refused here.
           if (!parseInt(value, INT_MIN, INT_MAX, &number)) return usageError("bad port " + value);
           info.port = static_cast<int>(number);
         } else if (args[i] == "--enable") {
           if (!parseInt(value, 0, 1, &number)) return usageError("--enable takes 0 or 1");
           info.enable = static_cast<int>(number);
         } else {
           return usageError("unknown option " + args[i]);
         }
       }
       int rc = host->setHttpHostInfo(info);
       const char* meaning =
           rc == 1   ? "bad argument (IP empty or over 15 characters, URL empty or over 2048 "
                       "characters, port outside 0..65535) or an element could not be changed"
           : rc == 2 ? kNotRead
           : rc == 3 ? kNotWritten
                     : "";
       return reportResult("set httphost", rc, meaning);
     }});

RegisterCommand g_setDeviceMgmt(
    {"set devicemgmt", "encodingDev|AccessControl", "change the kind of managed devices",
     [](const std::vector<std::string>& args) {
       if (args.size() != 1) return usageError("set devicemgmt takes encodingDev or AccessControl");
       int rc = OX_ConfigMgr_GetDeviceMgmtCfg()->updateChecked(args[0]);
       const char* meaning = rc == 1   ? "unknown kind, or Checked could not be changed"
                             : rc == 2 ? kNotRead
                             : rc == 3 ? kNotWritten
                                       : "";
       return reportResult("set devicemgmt", rc, meaning);
     }});

const char kAlarmNotWritten[] =
    "Config.xml could not be written; the new values hold in memory until the next start";

RegisterCommand g_setAlarmMonitor(
    {"set alarmmonitor", "--enable 0|1 [--token T]",
     "switch the alarm monitor and optionally store a token (in force after the next start)",
     [](const std::vector<std::string>& args) {
       auto alarm = OX_ConfigMgr_GetAlarmMonitorCfg();
       tagAlarmMonitorCnf cfg;
       alarm->getAlarmMonitorCfg(cfg);
       bool enableGiven = false;
       for (size_t i = 0; i < args.size(); i += 2) {
         if (i + 1 >= args.size()) return usageError(args[i] + " needs a value");
         long number = 0;
         if (args[i] == "--enable") {
           if (!parseInt(args[i + 1], 0, 1, &number)) return usageError("--enable takes 0 or 1");
           cfg.enable = static_cast<uint32_t>(number);
           enableGiven = true;
         } else if (args[i] == "--token") {
           if (args[i + 1].empty() || args[i + 1].size() > sizeof cfg.token - 1) {
             return usageError("--token takes 1 to 64 characters");
           }
           copyArgument(cfg.token, args[i + 1]);
         } else {
           return usageError("unknown option " + args[i]);
         }
       }
       if (!enableGiven) return usageError("set alarmmonitor needs --enable");
       int rc = alarm->setAlarmMonitorCfg(cfg);
       return reportResult("set alarmmonitor", rc, rc == 9 ? kAlarmNotWritten : "");
     }});

RegisterCommand g_refreshToken(
    {"alarm-token refresh", "", "make a new alarm monitor token and put it in force",
     [](const std::vector<std::string>& args) {
       if (!args.empty()) return usageError("alarm-token refresh takes no arguments");
       auto alarm = OX_ConfigMgr_GetAlarmMonitorCfg();
       int rc = alarm->refreshAlarmMonitorCfg();
       tagAlarmMonitorCnf cfg;
       alarm->getAlarmMonitorCfg(cfg);
       const char* meaning = rc == 9 ? "Config.xml could not be written; the new token is in "
                                       "force until the next start"
                                     : "";
       if (jsonOutput()) {
         std::printf("{\"command\": \"alarm-token refresh\", \"result\": %d, \"ok\": %s, \"meaning\": %s, "
                     "\"token\": %s}\n",
                     rc, rc == 0 ? "true" : "false", jsonString(meaning).c_str(), jsonString(cfg.token).c_str());
         return rc == 0 ? kExitOk : kExitRefused;
       }
       int status = reportResult("alarm-token refresh", rc, meaning);
       std::printf("token: %s\n", cfg.token);
       return status;
     }});

}  // namespace
}  // namespace oxcfg
