#include <oxconfigmgr/OxARCCfg.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <string>

#include "arc/arc_internal.h"
#include "frame/backup_merge.h"
#include "frame/config_store.h"
#include "frame/config_txn.h"
#include "platform/check_port.h"
#include "platform/osl.h"
#include "platform/xlog.h"
#include "platform/xml_base.h"

// Messages carry the public method's name even when a helper logs them.
#define ARC_LOG(level, function, fmt, ...) \
  xlog_format((level), "OXW", (fmt), (function), __LINE__, ##__VA_ARGS__)

namespace OxConfigMgr {

using OxBase::CXmlBase;

namespace {

// One element of the file whose children are read or rewritten. Entering is
// undone when the block goes out of scope. A block that is absent, or present
// without child elements, answers every child as absent.
class Block {
 public:
  Block(CXmlBase& xml, const char* name, bool parentEntered = true)
      : xml_(xml),
        present_(parentEntered && xml.FindElem(name)),
        entered_(present_ && xml.IntoElem()) {}
  Block(Block& parent, const char* name) : Block(parent.xml_, name, parent.entered_) {}
  ~Block() {
    if (entered_) xml_.OutOfElem();
  }
  Block(const Block&) = delete;
  Block& operator=(const Block&) = delete;

  bool present() const { return present_; }
  bool entered() const { return entered_; }
  // Text of the child `name`; null when there is none.
  const char* text(const char* name) { return entered_ && xml_.FindElem(name) ? xml_.GetData() : nullptr; }
  // Replaces the text of the child `name`; false when there is none.
  bool put(const char* name, const char* value) { return entered_ && xml_.ModifyData(name, value) == 1; }
  bool put(const char* name, int32_t value) { return put(name, std::to_string(value).c_str()); }
  bool putSwitch(const char* name, int32_t value) { return put(name, value ? "1" : "0"); }

 private:
  CXmlBase& xml_;
  bool present_;
  bool entered_;
};

// "%d": leading blanks, an optional sign, at least one digit; the rest is
// ignored. False, leaving `out`, when there is no number.
bool scanDecimal(const char* text, int32_t* out) {
  if (!text) return false;
  char* end = nullptr;
  errno = 0;
  const long long v = std::strtoll(text, &end, 10);
  if (end == text) return false;
  *out = static_cast<int32_t>(static_cast<uint32_t>(static_cast<unsigned long long>(v)));
  return true;
}

// An integer read with "%d" starts from -1, so text without a number reads -1.
int32_t scanOrMinusOne(const char* text) {
  int32_t v = -1;
  scanDecimal(text, &v);
  return v;
}

int32_t isExactlyOne(const char* text) { return std::strcmp(text, "1") == 0 ? 1 : 0; }

// A switch: on only for "1"; `absent` when the element is missing.
void readSwitch(Block& b, const char* name, int32_t& field, int32_t absent) {
  const char* t = b.text(name);
  field = t ? isExactlyOne(t) : absent;
}

// A text cut to its field; `absent` (null: keep the field) when missing.
template <size_t N>
void readText(Block& b, const char* name, char (&field)[N], const char* absent) {
  const char* t = b.text(name);
  if (t)
    setField(field, t);
  else if (absent)
    setField(field, absent);
}

// A decimal integer; `absent` when missing (or kept, without one).
void readNumber(Block& b, const char* name, int32_t& field) {
  if (const char* t = b.text(name)) field = OSL_Atoi32(t);
}
void readNumber(Block& b, const char* name, int32_t& field, int32_t absent) {
  const char* t = b.text(name);
  field = t ? OSL_Atoi32(t) : absent;
}

// "SerialPort" of the Sur-Gard and A685 blocks: every element is required.
template <class P>
bool readSerialPort(Block& parent, P& p) {
  Block serial(parent, "SerialPort");
  if (!serial.entered()) {
    ARC_LOG(5, "loadFile", "[%s(%d)] element SerialPort error");
    return false;
  }
  struct {
    const char* name;
    int32_t* field;
  } const numbers[] = {{"SerialNumber", &p.serialNumber}, {"BaudRate", &p.baudRate}, {"DataBits", &p.dataBits}};
  for (const auto& n : numbers) {
    const char* t = serial.text(n.name);
    if (!t) {
      ARC_LOG(5, "loadFile", "[%s(%d)] xml element error");
      return false;
    }
    *n.field = scanOrMinusOne(t);
  }
  const char* parity = serial.text("ParityType");
  if (!parity) {
    ARC_LOG(5, "loadFile", "[%s(%d)] xml element error");
    return false;
  }
  setField(p.parityType, parity);
  const char* stop = serial.text("StopBits");
  if (!stop) {
    ARC_LOG(5, "loadFile", "[%s(%d)] xml element error");
    return false;
  }
  setField(p.stopBits, stop);
  return true;
}

template <class P>
bool writeSerialPort(Block& parent, const P& p) {
  Block serial(parent, "SerialPort");
  return serial.put("SerialNumber", p.serialNumber) && serial.put("BaudRate", p.baudRate) &&
         serial.put("DataBits", p.dataBits) && serial.put("ParityType", p.parityType) &&
         serial.put("StopBits", p.stopBits);
}

// File codes of the heartbeat and the output type.
const char* heartbeatCode(int32_t seconds) {
  if (seconds == 10) return "0";
  if (seconds == 30) return "1";
  return nullptr;
}
const char* const kOutputTypes[] = {"CID", "CID-10", "SIA"};
const char* outputTypeCode(const char* name) {
  static const char* const kCodes[] = {"0", "1", "2"};
  for (int i = 0; i < 3; ++i) {
    if (std::strcmp(name, kOutputTypes[i]) == 0) return kCodes[i];
  }
  return nullptr;
}

// Reads "ARCConfig.xml" into `cfg` (loading, after the carry-over).
bool readArcFile(tagArcCnf& cfg);

}  // namespace

CARCCfg::CARCCfg() : m_cfg() {}

CARCCfg::~CARCCfg() = default;

bool CARCCfg::loadFile() try {
  copyBackupConfig();
  // Held from the read on: a rejected Sur-Gard port is written back into
  // the document just read.
  ConfigFileTxn txn(getARCConfigFilePath());
  return readArcFile(m_cfg);
} catch (...) {
  return false;
}

namespace {

bool readArcFile(tagArcCnf& cfg) {
  const std::string path = getARCConfigFilePath();
  CXmlBase xml;
  if (xml.LoadFile(path) != 1) {
    ARC_LOG(5, "loadFile", "[%s(%d)] ARCConfig.xml file is not exist");
    return false;
  }
  Block root(xml, "Config");
  if (!root.present()) return true;  // a foreign file changes nothing

  {
    Block protocol(root, "Protocol");
    if (protocol.present()) {
      readSwitch(protocol, "Enable", cfg.enable, 0);
      readText(protocol, "Type", cfg.type, "Sur-Gard");
    }
  }

  {
    Block b(root, "SGConfig");
    if (b.present()) {
      tagSGParam& sg = cfg.sg;
      readText(b, "PortType", sg.portType, "TCP/IP");
      readSwitch(b, "ServerMode", sg.serverMode, 1);
      readText(b, "PlatformIP", sg.platformIP, nullptr);
      if (const char* t = b.text("SGPort")) {
        const int32_t port = OSL_Atoi32(t);
        if (port != sg.sgPort) {
          if (!sg.serverMode || CheckPort(port, 1) != -1) {
            sg.sgPort = port;
          } else {
            // Names the port that was in force, not the rejected one.
            ARC_LOG(4, "loadFile", "[%s(%d)] [port=%d] is invalied.", sg.sgPort);
            sg.sgPort = 0;
            if (!b.put("SGPort", "0") || xml.WriteToFile(path) != 1) return false;
          }
        }
      }
      readSwitch(b, "HeartbeatEnable", sg.heartbeatEnable, 0);
      const char* t = b.text("Heartbeat");
      const int32_t heartbeat = scanOrMinusOne(t);
      if (!t || (heartbeat != 0 && heartbeat != 1)) return false;
      sg.heartbeat = heartbeat == 0 ? 10 : 30;
      t = b.text("OutputType");
      int32_t output = -1;
      if (!t || !scanDecimal(t, &output) || output < 0 || output > 2) return false;
      setField(sg.outputType, kOutputTypes[output]);
      readText(b, "ReceiverType", sg.receiverType, "MLR2000");
      if (!readSerialPort(b, sg)) return false;
      readText(b, "RR", sg.rr, "01");
      readText(b, "LLL", sg.lll, "001");
    }
  }

  {
    Block b(root, "A685Config");
    if (!b.present()) return false;
    if (!readSerialPort(b, cfg.a685)) return false;
    readText(b, "R", cfg.a685.r, "1");
    readText(b, "L", cfg.a685.l, "1");
  }

  {
    Block b(root, "ManitouConfig");
    if (!b.present()) return false;
    tagFEPParam& m = cfg.manitou;
    readText(b, "IP", m.ip, nullptr);
    readNumber(b, "Port", m.port);
    readText(b, "Line", m.line, "1");
    readNumber(b, "LinkMode", m.linkMode);
    readNumber(b, "HeartbeatInterval", m.heartbeatInterval, 30);
    readNumber(b, "TestSignalInterval", m.testSignalInterval, 60);
    readText(b, "SignalID", m.signalID, "GATEWAY");
    readText(b, "EventType", m.eventType, "SYS");
    readText(b, "EventID", m.eventID, "*RP");
  }

  {
    Block b(root, "SBNConfig");
    if (!b.present()) return false;
    readText(b, "IP", cfg.sbn.ip, nullptr);
    readNumber(b, "Port", cfg.sbn.port);
  }
  return true;
}

}  // namespace

int CARCCfg::getARCParam(tagArcCnf& out) const {
  // As bytes, padding included, so the caller's copy equals the record.
  std::memcpy(static_cast<void*>(&out), &m_cfg, sizeof out);
  return 0;
}

int CARCCfg::setARCParam(const tagArcCnf& in) try {
  std::memcpy(static_cast<void*>(&m_cfg), &in, sizeof m_cfg);
  // The writer reads the texts as strings: keep them within their fields.
  terminateField(m_cfg.type);
  terminateField(m_cfg.sg.portType);
  terminateField(m_cfg.sg.outputType);
  terminateField(m_cfg.sg.platformIP);
  terminateField(m_cfg.sg.receiverType);
  terminateField(m_cfg.sg.parityType);
  terminateField(m_cfg.sg.stopBits);
  terminateField(m_cfg.sg.rr);
  terminateField(m_cfg.sg.lll);
  terminateField(m_cfg.a685.parityType);
  terminateField(m_cfg.a685.stopBits);
  terminateField(m_cfg.a685.r);
  terminateField(m_cfg.a685.l);
  terminateField(m_cfg.manitou.ip);
  terminateField(m_cfg.manitou.line);
  terminateField(m_cfg.manitou.signalID);
  terminateField(m_cfg.manitou.eventType);
  terminateField(m_cfg.manitou.eventID);
  terminateField(m_cfg.sbn.ip);
  if (!setFile()) {
    ARC_LOG(5, "setARCParam", "[%s(%d)] set ARCConfig.xml file failed");
    return 9;
  }
  return 0;
} catch (...) {
  return 9;
}

bool CARCCfg::setFile() try {
  const std::string path = getARCConfigFilePath();
  ConfigFileTxn txn(path);
  CXmlBase xml;
  if (xml.LoadFile(path) != 1) {
    ARC_LOG(5, "setFile", "[%s(%d)] ARCConfig.xml file is not exist");
    return false;
  }
  {
    Block root(xml, "Config");
    {
      Block b(root, "Protocol");
      if (b.present() && !(b.putSwitch("Enable", m_cfg.enable) && b.put("Type", m_cfg.type))) return false;
    }
    {
      Block b(root, "SGConfig");
      if (b.present()) {
        const tagSGParam& sg = m_cfg.sg;
        if (!(b.put("PortType", sg.portType) && b.putSwitch("ServerMode", sg.serverMode) &&
              b.put("PlatformIP", sg.platformIP) && b.put("SGPort", sg.sgPort) &&
              b.putSwitch("HeartbeatEnable", sg.heartbeatEnable))) {
          return false;
        }
        const char* heartbeat = heartbeatCode(sg.heartbeat);
        if (!heartbeat) {
          ARC_LOG(5, "setFile", "[%s(%d)] Heartbeat is not support");
          return false;
        }
        if (!b.put("Heartbeat", heartbeat)) return false;
        const char* output = outputTypeCode(sg.outputType);
        if (!output) {
          ARC_LOG(5, "setFile", "[%s(%d)] OutputType is not support");
          return false;
        }
        if (!(b.put("OutputType", output) && b.put("ReceiverType", sg.receiverType) &&
              writeSerialPort(b, sg) && b.put("RR", sg.rr) && b.put("LLL", sg.lll))) {
          return false;
        }
      }
    }
    {
      Block b(root, "A685Config");
      if (b.present() &&
          !(writeSerialPort(b, m_cfg.a685) && b.put("R", m_cfg.a685.r) && b.put("L", m_cfg.a685.l))) {
        return false;
      }
    }
    {
      // The heartbeat interval is deliberately not written back.
      const tagFEPParam& m = m_cfg.manitou;
      Block b(root, "ManitouConfig");
      if (b.present() &&
          !(b.put("IP", m.ip) && b.put("Port", m.port) && b.put("Line", m.line) &&
            b.put("LinkMode", m.linkMode) && b.put("TestSignalInterval", m.testSignalInterval) &&
            b.put("SignalID", m.signalID) && b.put("EventType", m.eventType) && b.put("EventID", m.eventID))) {
        return false;
      }
    }
    {
      Block b(root, "SBNConfig");
      if (b.present() && !(b.put("IP", m_cfg.sbn.ip) && b.put("Port", m_cfg.sbn.port))) return false;
    }
  }
  return xml.WriteToFile(path) == 1;
} catch (...) {
  return false;
}

void CARCCfg::copyBackupConfig() try {
  mergeBackupFile(getARCConfigFilePath(), OxBase::FileMode::kKeep, [](CXmlBase& current, CXmlBase& backup) {
    copyXMLRecursive(current, backup, nullptr);
    parseNewARCConfig(current, backup);
  });
} catch (...) {
}

void parseNewARCConfig(CXmlBase& newDoc, CXmlBase& backupDoc) {
  int32_t value = 0;
  if (xmlWalk(backupDoc, {"Config", "SGConfig", "Enable"})) value = OSL_Atoi32(backupDoc.GetData());
  if (value != 0 && xmlWalk(newDoc, {"Config", "Protocol", "Enable"})) {
    newDoc.ModifyData("Enable", std::to_string(value).c_str());
  }
  newDoc.SetRoot();
  backupDoc.SetRoot();
}

}  // namespace OxConfigMgr
