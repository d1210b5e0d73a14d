// `show private`: the private configuration, never its storage secrets.
#include <oxconfigmgr/OxConfigMgr.h>

#include <string>

#include "cli/cli.h"

namespace oxcfg {
namespace {

RegisterShow g_private({"private", "Private configuration", [](Rows& rows) {
  auto cfg = OX_ConfigMgr_GetPrivateCfg();
  if (!cfg) return false;
  OxConfigMgr::tagLDMInfo ldm;
  OxConfigMgr::tagHTTPServiceInfo http;
  OxConfigMgr::tagWebSocketServiceInfo ws;
  OxConfigMgr::tagInternalCommunicationInfo comm;
  OxConfigMgr::tagEncryptInfo enc;
  cfg->getLDMParams(ldm);
  cfg->getHttpServiceParams(http);
  cfg->getWebsocketServiceParams(ws);
  cfg->getInternalCommParams(comm);
  cfg->getEncryptParams(enc);
  auto n = [](unsigned v) { return std::to_string(v); };
  rows.emplace_back("LDM port", n(ldm.ldmPort));
  rows.emplace_back("LDM operation port", n(ldm.ldmOperationPort));
  rows.emplace_back("LDM alarm port", n(ldm.ldmAlarmPort));
  rows.emplace_back("LDM stream port", n(ldm.ldmStreamPort));
  rows.emplace_back("Lumen register port", n(ldm.lumenRegisterPort));
  rows.emplace_back("Lumen alarm port", n(ldm.lumenAlarmPort));
  rows.emplace_back("HTTP service port", n(http.port));
  rows.emplace_back("HTTP service threads", n(http.taskThread));
  rows.emplace_back("audio talk port", n(http.audioTalkPort));
  rows.emplace_back("WebSocket port", n(ws.port));
  rows.emplace_back("WebSocket threads", n(ws.taskThread));
  rows.emplace_back("connect time-out", n(comm.connectTimeOut));
  rows.emplace_back("receive time-out", n(comm.recvTimeOut));
  rows.emplace_back("device API encryption level", n(enc.level));
  rows.emplace_back("device API iterations", n(enc.iterations));
  bool hasKey = false;
  for (int i = 0; i < 32; ++i) hasKey = hasKey || enc.storageKey[i] != 0;
  rows.emplace_back("storage key", hasKey ? "present" : "absent");
  return true;
}});

}  // namespace
}  // namespace oxcfg
