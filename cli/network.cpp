// oxcfg: the network configuration and the NAT gateway ranges.
#include <oxconfigmgr/OxConfigMgr.h>

#include <cstdio>
#include <cstring>
#include <memory>
#include <string>
#include <vector>

#include "cli/cli.h"

namespace oxcfg {
namespace {

using OxConfigMgr::CNetworkCfg;

std::string setterMeaning(int code) {
  switch (code) {
    case 1: return "the element exists but its text was not replaced";
    case 2: return "Config.xml could not be read";
    case 3: return "Config.xml could not be written";
    default: return "unknown result";
  }
}

std::shared_ptr<CNetworkCfg> network() {
  auto cfg = OX_ConfigMgr_GetNetworkCfg();
  if (!cfg) std::fprintf(stderr, "oxcfg: the network configuration is not loaded\n");
  return cfg;
}

std::string field(const char* text, size_t size) { return std::string(text, strnlen(text, size)); }

std::string protocols(uint32_t mask) {
  std::string out;
  const std::pair<uint32_t, const char*> names[] = {
      {OxConfigMgr::PROTOCOL_SDK, "SDK"}, {OxConfigMgr::PROTOCOL_LUMEN, "lumen"},
      {OxConfigMgr::PROTOCOL_LUMEN5, "lumen5.0"}, {OxConfigMgr::PROTOCOL_QAPI, "QAPI"}};
  for (const auto& n : names) {
    if (mask & n.first) out += (out.empty() ? "" : ",") + std::string(n.second);
  }
  return out.empty() ? "-" : out;
}

std::string pair(uint16_t a, uint16_t b) { return std::to_string(a) + " - " + std::to_string(b); }

bool fillNetwork(Rows& rows) {
  auto cfg = OX_ConfigMgr_GetNetworkCfg();
  if (!cfg) return false;
  const CNetworkCfg& c = *cfg;
  auto port = [&](const char* label, uint16_t internal, uint16_t external) {
    rows.emplace_back(label, std::to_string(internal) + " (external " + std::to_string(external) + ")");
  };
  port("HTTP port", c.getHttpPort(), c.getExtHttpPort());
  port("HTTPS port", c.getHttpsPort(), c.getExtHttpsPort());
  rows.emplace_back("HTTPS enable", std::to_string(c.getHttpsEnable()));
  port("RTSP port", c.getRtspPort(), c.getExtRtspPort());
  port("picture upload port", c.getPssUploadPort(), c.getExtPssUploadPort());
  port("picture download port", c.getPssDownloadPort(), c.getExtPssDownloadPort());
  port("Lumen registration port", c.getLumenRegPort(), c.getExtLumenRegPort());
  port("Lumen alarm port", c.getLumenAlarmPort(), c.getExtLumenAlarmPort());
  uint16_t lo, hi, elo, ehi;
  c.getLumenStreamPort(lo, hi);
  c.getExtLumenStreamPort(elo, ehi);
  rows.emplace_back("Lumen stream ports", pair(lo, hi) + " (external " + pair(elo, ehi) + ")");
  port("Lumen 5.0 registration port", c.getLumenV5RegPort(), c.getExtLumenV5RegPort());
  port("Lumen 5.0 alarm port", c.getLumenV5AlarmPort(), c.getExtLumenV5AlarmPort());
  port("Lumen 5.0 video-alarm port", c.getLumenV5VideoAlarmPort(), c.getExtLumenV5VideoAlarmPort());
  port("Lumen 5.0 access-alarm port", c.getLumenV5AcsAlarmPort(), c.getExtLumenV5AcsAlarmPort());
  port("Lumen 5.0 stream port", c.getLumenV5StreamPort(), c.getExtLumenV5StreamPort());
  port("Lumen 5.0 playback port", c.getLumenV5PlayBackPort(), c.getExtLumenV5PlayBackPort());
  port("Lumen 5.0 two-way audio port", c.getLumenV5TwowayAudioPort(), c.getExtLumenV5TwowayAudioPort());
  rows.emplace_back("WISP 5 alarm port type", std::to_string(c.getWISP5AlarmPortType()));
  port("WISP 5 alarm port", c.getWISP5AlarmPort(), c.getExtWISP5AlarmPort());
  rows.emplace_back("platform port mapping", c.isPlatformPortMapping() ? "on" : "off");
  rows.emplace_back("device port mapping", c.isDevicePortMapping() ? "on" : "off");
  rows.emplace_back("HTTP mapped", c.isHttpMapping() ? "yes" : "no");
  rows.emplace_back("RTSP mapped", c.isRtspMapping() ? "yes" : "no");
  uint16_t seconds, count;
  c.getDevKeepAliveParam(seconds, count);
  rows.emplace_back("device keep-alive", std::to_string(seconds) + " s, " + std::to_string(count) + " misses");
  rows.emplace_back("gateway address", c.getGatewayInterIP());
  rows.emplace_back("gateway outside address", c.getGatewayOuterIP());
  rows.emplace_back("device outside address", c.getDeviceOuterAddr());
  std::vector<_NIC_INFO_V4> table;
  cfg->getIPv4List(table);
  for (size_t i = 0; i < table.size(); ++i) {
    const _NIC_INFO_V4& e = table[i];
    rows.emplace_back("address " + std::to_string(i),
                      field(e.ipv4, sizeof e.ipv4) + "  external=" + field(e.externalIP, sizeof e.externalIP) +
                          "  device-external=" + field(e.deviceExternal, sizeof e.deviceExternal) +
                          "  protocols=" + protocols(e.protocolMask) + "  adapter=" +
                          field(e.description, sizeof e.description));
  }
  return true;
}

RegisterShow g_showNetwork({"network", "Network", fillNetwork});

RegisterShow g_showNat({"nat", "NAT gateway port ranges", [](Rows& rows) {
                          auto nat = OX_ConfigMgr_GetNATGateway();
                          if (!nat) return false;
                          rows.emplace_back("HTTP", pair(nat->getMinHTTPPort(), nat->getMaxHTTPPort()));
                          rows.emplace_back("RTSP", pair(nat->getMinRtspPort(), nat->getMaxRtspPort()));
                          return true;
                        }});

// ---- set network ... ------------------------------------------------------------

using PortSetter = uint32_t (CNetworkCfg::*)(unsigned short);
using IntSetter = uint32_t (CNetworkCfg::*)(int);
using PairSetter = uint32_t (CNetworkCfg::*)(unsigned short, unsigned short);

struct PortCommand {
  const char* name;
  PortSetter set;
};
const PortCommand kPortCommands[] = {
    {"http-port", &CNetworkCfg::setHttpPort},
    {"https-port", &CNetworkCfg::setHttpsPort},
    {"rtsp-port", &CNetworkCfg::setRtspPort},
    {"ext-http-port", &CNetworkCfg::setExtHttpPort},
    {"ext-https-port", &CNetworkCfg::setExtHttpsPort},
    {"ext-rtsp-port", &CNetworkCfg::setExtRtspPort},
    {"pss-upload-port", &CNetworkCfg::setPssUploadPort},
    {"ext-pss-upload-port", &CNetworkCfg::setExtPssUploadPort},
    {"lumen-reg-port", &CNetworkCfg::setLumenRegPort},
    {"lumen-alarm-port", &CNetworkCfg::setLumenAlarmPort},
    {"lumen5-reg-port", &CNetworkCfg::setLumenV5RegPort},
    {"lumen5-alarm-port", &CNetworkCfg::setLumenV5AlarmPort},
    {"lumen5-video-alarm-port", &CNetworkCfg::setLumenV5VedioAlarmPort},
    {"lumen5-acs-alarm-port", &CNetworkCfg::setLumenV5AcsAlarmPort},
    {"lumen5-stream-port", &CNetworkCfg::setLumenV5StreamPort},
    {"lumen5-playback-port", &CNetworkCfg::setLumenV5PlayBackPort},
    {"lumen5-twoway-audio-port", &CNetworkCfg::setLumenV5TwowayAudioPort},
    {"ext-lumen-reg-port", &CNetworkCfg::setExtLumenRegPort},
    {"ext-lumen-alarm-port", &CNetworkCfg::setExtLumenAlarmPort},
    {"ext-lumen5-reg-port", &CNetworkCfg::setExtLumenV5RegPort},
    {"ext-lumen5-alarm-port", &CNetworkCfg::setExtLumenV5AlarmPort},
    {"ext-lumen5-video-alarm-port", &CNetworkCfg::setExtLumenV5VedioAlarmPort},
    {"ext-lumen5-acs-alarm-port", &CNetworkCfg::setExtLumenV5AcsAlarmPort},
    {"ext-lumen5-stream-port", &CNetworkCfg::setExtLumenV5StreamPort},
    {"ext-lumen5-playback-port", &CNetworkCfg::setExtLumenV5PlayBackPort},
    {"ext-lumen5-twoway-audio-port", &CNetworkCfg::setExtLumenV5TwowayAudioPort},
    {"wisp5-alarm-port", &CNetworkCfg::setWISP5AlarmPort},
    {"ext-wisp5-alarm-port", &CNetworkCfg::setExtWISP5AlarmPort},
};

struct IntCommand {
  const char* name;
  IntSetter set;
  const char* help;
};
const IntCommand kIntCommands[] = {
    {"https-enable", &CNetworkCfg::setHttpsEnable, "switches HTTPS (0 off, other values on)"},
    {"platform-mapping", &CNetworkCfg::setPlatformPortMapping, "switches the platform port mapping"},
    {"device-mapping", &CNetworkCfg::setDevicePortMapping, "switches the device port mapping"},
};

struct PairCommand {
  const char* name;
  const char* usage;
  PairSetter set;
  const char* help;
};
const PairCommand kPairCommands[] = {
    {"lumen-stream", "MIN MAX", &CNetworkCfg::setLumenStreamPort, "sets the Lumen stream port range"},
    {"ext-lumen-stream", "MIN MAX", &CNetworkCfg::setExtLumenStreamPort,
     "sets the external Lumen stream port range"},
    {"keepalive", "SECONDS COUNT", &CNetworkCfg::setDevKeepAliveParam,
     "sets the device heartbeat interval and allowed misses"},
};

int badArguments(const std::string& name, const std::string& usage) {
  std::fprintf(stderr, "usage: oxcfg %s %s\n", name.c_str(), usage.c_str());
  return 2;
}

struct Registrar {
  Registrar() {
    for (const PortCommand& c : kPortCommands) {
      const std::string name = std::string("set network ") + c.name;
      const PortSetter set = c.set;
      RegisterCommand({name, "PORT", "sets the " + std::string(c.name) + " (0..65535)",
                       [name, set](const std::vector<std::string>& args) {
                         long v;
                         if (args.size() != 1 || !parseInt(args[0], 0, 65535, &v)) return badArguments(name, "PORT");
                         auto cfg = network();
                         if (!cfg) return 1;
                         int rc = static_cast<int>(((*cfg).*set)(static_cast<unsigned short>(v)));
                         return reportResult(name, rc, setterMeaning(rc));
                       }});
    }
    for (const IntCommand& c : kIntCommands) {
      const std::string name = std::string("set network ") + c.name;
      const IntSetter set = c.set;
      RegisterCommand({name, "VALUE", c.help, [name, set](const std::vector<std::string>& args) {
                         long v;
                         if (args.size() != 1 || !parseInt(args[0], -2147483647L - 1, 2147483647L, &v)) {
                           return badArguments(name, "VALUE");
                         }
                         auto cfg = network();
                         if (!cfg) return 1;
                         int rc = static_cast<int>(((*cfg).*set)(static_cast<int>(v)));
                         return reportResult(name, rc, setterMeaning(rc));
                       }});
    }
    for (const PairCommand& c : kPairCommands) {
      const std::string name = std::string("set network ") + c.name;
      const std::string usage = c.usage;
      const PairSetter set = c.set;
      RegisterCommand({name, usage, c.help, [name, usage, set](const std::vector<std::string>& args) {
                         long a, b;
                         if (args.size() != 2 || !parseInt(args[0], 0, 65535, &a) ||
                             !parseInt(args[1], 0, 65535, &b)) {
                           return badArguments(name, usage);
                         }
                         auto cfg = network();
                         if (!cfg) return 1;
                         int rc = static_cast<int>(
                             ((*cfg).*set)(static_cast<unsigned short>(a), static_cast<unsigned short>(b)));
                         return reportResult(name, rc, setterMeaning(rc));
                       }});
    }
  }
};
Registrar g_registrar;

RegisterCommand g_alarmType({"set network wisp5-alarm-type", "1|2",
                             "which Lumen 5.0 port carries WISP 5 alarms: 1 video alarm, 2 access control",
                             [](const std::vector<std::string>& args) {
                               const std::string name = "set network wisp5-alarm-type";
                               long v;
                               if (args.size() != 1 || !parseInt(args[0], 1, 2, &v)) return badArguments(name, "1|2");
                               auto cfg = network();
                               if (!cfg) return 1;
                               const auto type = static_cast<OxConfigMgr::WISP5AlarmPortType>(v);
                               int rc = static_cast<int>(cfg->setWISP5AlarmPortType(type));
                               return reportResult(name, rc, setterMeaning(rc));
                             }});

bool parseProtocol(const std::string& text, OxConfigMgr::DeviceProtocol* out) {
  if (text == "SDK") *out = OxConfigMgr::PROTOCOL_SDK;
  else if (text == "lumen") *out = OxConfigMgr::PROTOCOL_LUMEN;
  else if (text == "lumen5.0") *out = OxConfigMgr::PROTOCOL_LUMEN5;
  else if (text == "QAPI") *out = OxConfigMgr::PROTOCOL_QAPI;
  else return false;
  return true;
}

RegisterCommand g_bind({"bind", "SDK|lumen|lumen5.0|QAPI IP",
                        "binds a device protocol to the local address IP (none when no entry has it)",
                        [](const std::vector<std::string>& args) {
                          OxConfigMgr::DeviceProtocol p;
                          if (args.size() != 2 || !parseProtocol(args[0], &p)) {
                            return badArguments("bind", "SDK|lumen|lumen5.0|QAPI IP");
                          }
                          auto cfg = network();
                          if (!cfg) return 1;
                          if (cfg->checkProtocolBindIPv4(args[1]) == 0) {
                            std::fprintf(stderr, "note: no address entry has %s; %s is now bound nowhere\n",
                                        args[1].c_str(), args[0].c_str());
                          }
                          int rc = cfg->setProtocolBindIPv4(p, args[1]);
                          return reportResult("bind " + args[0], rc, setterMeaning(rc));
                        }});

RegisterCommand g_extIp({"set ext-ip", "IP EXTERNAL",
                         "sets the address under which the platform reaches local address IP",
                         [](const std::vector<std::string>& args) {
                           if (args.size() != 2) return badArguments("set ext-ip", "IP EXTERNAL");
                           auto cfg = network();
                           if (!cfg) return 1;
                           int rc = cfg->setExtIPv4(args[0], args[1]);
                           return reportResult("set ext-ip", rc, setterMeaning(rc));
                         }});

RegisterCommand g_devExt({"set dev-ext", "IP EXTERNAL",
                          "sets the address under which devices reach local address IP",
                          [](const std::vector<std::string>& args) {
                            if (args.size() != 2) return badArguments("set dev-ext", "IP EXTERNAL");
                            auto cfg = network();
                            if (!cfg) return 1;
                            int rc = cfg->setDevExt(args[0], args[1]);
                            return reportResult("set dev-ext", rc, setterMeaning(rc));
                          }});

}  // namespace
}  // namespace oxcfg
