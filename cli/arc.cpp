// oxcfg: the alarm-receiving-centre settings and the event code tables. The
// library never creates these objects itself; each command makes its own and
// loads it, as a gateway service does.
#include <oxconfigmgr/OxConfigMgr.h>

#include <cstdint>
#include <cstdio>
#include <cstring>
#include <functional>
#include <string>
#include <vector>

#include "cli/cli.h"

namespace oxcfg {
namespace {

using namespace OxConfigMgr;

// A text argument into a fixed field: refused, not cut, when too long.
template <size_t N>
bool setText(char (&field)[N], const std::string& value) {
  if (value.size() >= N || value.find('\0') != std::string::npos) return false;
  std::memset(field, 0, N);
  std::memcpy(field, value.data(), value.size());
  return true;
}

bool setInt(int32_t& field, const std::string& value) {
  long v = 0;
  if (!parseInt(value, INT32_MIN, INT32_MAX, &v)) return false;
  field = static_cast<int32_t>(v);
  return true;
}

bool setSwitch(int32_t& field, const std::string& value) {
  if (value == "1" || value == "on")
    field = 1;
  else if (value == "0" || value == "off")
    field = 0;
  else
    return false;
  return true;
}

// One field of the record, named "<family>.<field>" as `show arc` lists it.
struct ArcField {
  const char* name;
  const char* kind;  // for the help text
  std::function<std::string(const tagArcCnf&)> get;
  std::function<bool(tagArcCnf&, const std::string&)> set;  // empty: not settable
};

#define ARC_TEXT(name, member)                                                    \
  ArcField {                                                                      \
    name, "text", [](const tagArcCnf& c) { return std::string(c.member); },       \
        [](tagArcCnf& c, const std::string& v) { return setText(c.member, v); }   \
  }
#define ARC_INT(name, member)                                                     \
  ArcField {                                                                      \
    name, "number", [](const tagArcCnf& c) { return std::to_string(c.member); },  \
        [](tagArcCnf& c, const std::string& v) { return setInt(c.member, v); }    \
  }
#define ARC_SWITCH(name, member)                                                  \
  ArcField {                                                                      \
    name, "0|1", [](const tagArcCnf& c) { return std::to_string(c.member); },     \
        [](tagArcCnf& c, const std::string& v) { return setSwitch(c.member, v); } \
  }

const std::vector<ArcField>& arcFields() {
  static const std::vector<ArcField> fields = {
      ARC_TEXT("type", type),
      ARC_SWITCH("enable", enable),
      ARC_TEXT("sg.portType", sg.portType),
      ARC_TEXT("sg.outputType", sg.outputType),
      ARC_SWITCH("sg.serverMode", sg.serverMode),
      ARC_INT("sg.port", sg.sgPort),
      ARC_INT("sg.heartbeat", sg.heartbeat),
      ARC_TEXT("sg.platformIP", sg.platformIP),
      ARC_TEXT("sg.receiverType", sg.receiverType),
      ARC_SWITCH("sg.heartbeatEnable", sg.heartbeatEnable),
      ARC_INT("sg.serialNumber", sg.serialNumber),
      ARC_INT("sg.baudRate", sg.baudRate),
      ARC_INT("sg.dataBits", sg.dataBits),
      ARC_TEXT("sg.parityType", sg.parityType),
      ARC_TEXT("sg.stopBits", sg.stopBits),
      ARC_TEXT("sg.rr", sg.rr),
      ARC_TEXT("sg.lll", sg.lll),
      ARC_INT("a685.serialNumber", a685.serialNumber),
      ARC_INT("a685.baudRate", a685.baudRate),
      ARC_INT("a685.dataBits", a685.dataBits),
      ARC_TEXT("a685.parityType", a685.parityType),
      ARC_TEXT("a685.stopBits", a685.stopBits),
      ARC_TEXT("a685.r", a685.r),
      ARC_TEXT("a685.l", a685.l),
      ARC_TEXT("manitou.ip", manitou.ip),
      ARC_INT("manitou.port", manitou.port),
      ARC_TEXT("manitou.line", manitou.line),
      ARC_INT("manitou.linkMode", manitou.linkMode),
      // Shown, but never written to the file: a value set would be lost at
      // the next load, so the command refuses it.
      ArcField{"manitou.heartbeatInterval", "number",
               [](const tagArcCnf& c) { return std::to_string(c.manitou.heartbeatInterval); }, nullptr},
      ARC_INT("manitou.testSignalInterval", manitou.testSignalInterval),
      ARC_TEXT("manitou.signalID", manitou.signalID),
      ARC_TEXT("manitou.eventType", manitou.eventType),
      ARC_TEXT("manitou.eventID", manitou.eventID),
      ARC_TEXT("sbn.ip", sbn.ip),
      ARC_INT("sbn.port", sbn.port),
  };
  return fields;
}

RegisterShow g_showArc({"arc", "Alarm receiving centre (ARCConfig.xml)", [](Rows& rows) {
                          CARCCfg arc;
                          const bool loaded = arc.loadFile();
                          tagArcCnf cfg;
                          arc.getARCParam(cfg);
                          rows.emplace_back("loaded", loaded ? "yes" : "no (see the log)");
                          for (const auto& f : arcFields()) rows.emplace_back(f.name, f.get(cfg));
                          return true;
                        }});

// `set arc` completes its FIELD from the same table that `show arc` prints.
RegisterWords g_arcWords("set arc", [] {
  std::vector<std::string> names;
  for (const auto& f : arcFields()) names.push_back(f.name);
  return names;
});

RegisterCommand g_setArc(
    {"set arc", "FIELD VALUE",
     "change one alarm-receiving-centre setting (FIELD as `show arc` names it; heartbeat 10 or 30, "
     "output type CID, CID-10 or SIA)",
     [](const std::vector<std::string>& args) {
       if (args.size() != 2) return usageError("set arc takes FIELD VALUE");
       const ArcField* field = nullptr;
       for (const auto& f : arcFields()) {
         if (args[0] == f.name) field = &f;
       }
       if (!field) return usageError("unknown field '" + args[0] + "' (see `oxcfg show arc`)");
       if (!field->set) return usageError(args[0] + " is not kept in ARCConfig.xml and cannot be set");
       CARCCfg arc;
       if (!arc.loadFile()) {
         std::fprintf(stderr, "oxcfg: ARCConfig.xml could not be loaded; nothing changed\n");
         return 1;
       }
       tagArcCnf cfg;
       arc.getARCParam(cfg);
       if (!field->set(cfg, args[1])) return usageError("'" + args[1] + "' is not a valid " + field->kind + " for " + args[0]);
       return reportResult("set arc " + args[0], arc.setARCParam(cfg),
                           "ARCConfig.xml could not be written, lacks an element, or holds no such heartbeat "
                           "or output type");
     }});

// `codes list sg|poll [--page N] [--size M]`, pages counted from 1.
RegisterCommand g_codesList(
    {"codes list", "sg|poll [--page N] [--size M]", "list an event code table page by page, in code order",
     [](const std::vector<std::string>& args) {
       if (args.empty() || (args[0] != "sg" && args[0] != "poll")) return usageError("codes list takes sg or poll");
       long page = 1, size = 20;
       for (size_t i = 1; i < args.size(); i += 2) {
         if (i + 1 >= args.size()) return usageError("missing value after " + args[i]);
         long* target = args[i] == "--page" ? &page : args[i] == "--size" ? &size : nullptr;
         if (!target) return usageError("unknown option " + args[i]);
         if (!parseInt(args[i + 1], 1, 1000000, target)) return usageError("bad value for " + args[i]);
       }
       CConvertCodeCfg codes;
       if (!codes.loadFile()) {
         std::fprintf(stderr, "oxcfg: ConvertCodeConfig.xml could not be loaded\n");
         return 1;
       }
       const bool poll = args[0] == "poll";
       tagEventCodeQueryReq req;
       req.position = static_cast<int32_t>((page - 1) * size);
       req.maxResults = static_cast<int32_t>(size);
       req.isPollEvent = poll ? 1 : 0;
       std::vector<tagEventCode> list;
       int count = 0, total = 0;
       if ((page - 1) * size > INT32_MAX || codes.getSGEventCodeList(list, count, total, &req) != 0) {
         return usageError("page out of range");
       }
       const char* name = poll ? "poll-event" : "Sur-Gard";
       if (jsonOutput()) {
         std::printf("{\"table\": \"%s\", \"page\": %ld, \"total\": %d, \"rows\": [", args[0].c_str(), page, total);
         for (size_t i = 0; i < list.size(); ++i) {
           const auto& row = list[i];
           std::printf("%s\n  {\"code\": %s, \"cid\": %s, ", i ? "," : "", jsonString(row.code).c_str(),
                       jsonString(row.info.cid).c_str());
           if (poll) std::printf("\"enabled\": %s, ", row.info.enabled ? "true" : "false");
           else std::printf("\"sia\": %s, ", jsonString(row.info.sia).c_str());
           std::printf("\"description\": %s}", jsonString(row.info.eventDesc).c_str());
         }
         std::printf("%s]}\n", list.empty() ? "" : "\n");
         return 0;
       }
       if (count == 0)
         std::printf("%s table: no rows on page %ld (%d in the table)\n", name, page, total);
       else
         std::printf("%s table: rows %d-%d of %d\n", name, req.position + 1, req.position + count, total);
       for (const auto& row : list) {
         if (poll) {
           std::printf("  %-32s  CID %-4s  %-8s  %s\n", row.code, row.info.cid, row.info.enabled ? "enabled" : "disabled",
                       row.info.eventDesc);
         } else {
           std::printf("  %-32s  CID %-4s  SIA %-2s  %s\n", row.code, row.info.cid, row.info.sia, row.info.eventDesc);
         }
       }
       return 0;
     }});

RegisterCommand g_codesConvert(
    {"codes convert", "CODE", "show what each table gives for a gateway event code",
     [](const std::vector<std::string>& args) {
       if (args.size() != 1) return usageError("codes convert takes one CODE");
       CConvertCodeCfg codes;
       if (!codes.loadFile()) {
         std::fprintf(stderr, "oxcfg: ConvertCodeConfig.xml could not be loaded\n");
         return 1;
       }
       const struct {
         EventFormat format;
         const char* label;
         const char* key;
       } formats[] = {{EVENT_FORMAT_CID, "Contact ID (Sur-Gard table)", "cid"},
                      {EVENT_FORMAT_SIA, "SIA (Sur-Gard table)", "sia"},
                      {EVENT_FORMAT_POLL_CID, "Contact ID (poll-event table)", "pollCid"}};
       if (jsonOutput()) {
         std::printf("{\"code\": %s", jsonString(args[0]).c_str());
         for (const auto& f : formats) {
           std::string out;
           const bool converted = codes.convertCode(f.format, args[0], out) == 1;
           std::printf(", \"%s\": %s", f.key, converted ? jsonString(out).c_str() : "null");
         }
         std::printf("}\n");
         return 0;
       }
       for (const auto& f : formats) {
         std::string out;
         if (codes.convertCode(f.format, args[0], out) == 1)
           std::printf("%-30s %s\n", f.label, out.c_str());
         else
           std::printf("%-30s - (not converted)\n", f.label);
       }
       return 0;
     }});

}  // namespace
}  // namespace oxcfg
