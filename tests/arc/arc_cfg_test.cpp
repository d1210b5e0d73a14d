// CARCCfg on real "ARCConfig.xml" files written by the tests: loading with
// its defaults, cuts and failures, the Sur-Gard port check against real
// sockets, the writer, and the carry-over of an upgrade's backup.
#include <unistd.h>

#include <oxconfigmgr/OxConfigMgr.h>

#include <cerrno>
#include <cstddef>
#include <cstring>
#include <initializer_list>
#include <memory>
#include <string>

#include "frame/config_store.h"
#include "platform/xml_base.h"
#include "support/test_support.h"

namespace {

using OxBase::CXmlBase;
using OxConfigMgr::CARCCfg;
using OxConfigMgr::tagArcCnf;
using OxConfigMgr::xmlWalk;
using Walk = std::initializer_list<const char*>;

// A text into a field as a host would put it: the rest of the field zero.
template <size_t N>
void fill(char (&field)[N], const char* text) {
  ASSERT_LT(std::strlen(text), N);
  std::memset(field, 0, N);
  std::strcpy(field, text);
}

class ArcCfgTest : public oxtest::WorkDirTest {
 protected:
  void SetUp() override {
    WorkDirTest::SetUp();
    resetFile();
  }
  // The factory file, in the document and on disk.
  void resetFile() {
    ASSERT_EQ(doc_.LoadFile(std::string(OXCFG_FACTORY_DIR) + "/ARCConfig.xml"), 1);
    save();
  }

  // The document the next save() writes, edited in place.
  void set(Walk where, const std::string& text) {
    ASSERT_TRUE(xmlWalk(doc_, where));
    ASSERT_EQ(doc_.ModifyData(*(where.end() - 1), text.c_str()), 1);
  }
  void remove(Walk where) {
    ASSERT_TRUE(xmlWalk(doc_, where));
    ASSERT_TRUE(doc_.RemoveNode());
  }
  void save() { ASSERT_EQ(doc_.WriteToFile(path("ARCConfig.xml")), 1); }

  // Text of an element of the file on disk; "<missing>" when absent.
  std::string onDisk(Walk where) { return oxtest::xmlText(path("ARCConfig.xml"), where); }

  static tagArcCnf record(const CARCCfg& arc) {
    tagArcCnf out;
    EXPECT_EQ(arc.getARCParam(out), 0);
    return out;
  }
  // Saves the document and loads it into a new object; its record.
  tagArcCnf load(bool loads = true) {
    save();
    arc_.reset(new CARCCfg);
    EXPECT_EQ(arc_->loadFile(), loads);
    return record(*arc_);
  }

  CXmlBase doc_;
  std::unique_ptr<CARCCfg> arc_;
};

TEST(ArcRecordTest, LayoutAndDefaultsAreThoseHostsShare) {
  // The top-level offsets are pinned in the header; these are the inner ones
  // a host reading the bytes relies on.
  EXPECT_EQ(offsetof(OxConfigMgr::tagSGParam, serverMode), 28u);
  EXPECT_EQ(offsetof(OxConfigMgr::tagSGParam, platformIP), 40u);
  EXPECT_EQ(offsetof(OxConfigMgr::tagSGParam, heartbeatEnable), 92u);
  EXPECT_EQ(offsetof(OxConfigMgr::tagSGParam, rr), 126u);
  EXPECT_EQ(offsetof(OxConfigMgr::tagSGParam, spare), 133u);
  EXPECT_EQ(offsetof(OxConfigMgr::tagA685Param, r), 30u);
  EXPECT_EQ(offsetof(OxConfigMgr::tagFEPParam, port), 20u);
  EXPECT_EQ(offsetof(OxConfigMgr::tagFEPParam, eventID), 106u);
  EXPECT_EQ(offsetof(OxConfigMgr::tagFEPParam, spare), 140u);
  EXPECT_EQ(offsetof(OxConfigMgr::tagSBNParam, spare), 24u);

  CARCCfg arc;
  tagArcCnf c;
  std::memset(static_cast<void*>(&c), 0x5a, sizeof c);
  ASSERT_EQ(arc.getARCParam(c), 0);
  // Every byte is determined: zero except the three loopback addresses.
  tagArcCnf expected;
  std::memset(static_cast<void*>(&expected), 0, sizeof expected);
  std::strcpy(expected.sg.platformIP, "127.0.0.1");
  std::strcpy(expected.manitou.ip, "127.0.0.1");
  std::strcpy(expected.sbn.ip, "127.0.0.1");
  EXPECT_EQ(std::memcmp(&c, &expected, sizeof c), 0);
}

TEST_F(ArcCfgTest, LoadsTheFactoryFile) {
  const tagArcCnf c = load();
  EXPECT_STREQ(c.type, "Sur-Gard");
  EXPECT_EQ(c.enable, 0);
  EXPECT_STREQ(c.sg.portType, "TCP/IP");
  EXPECT_STREQ(c.sg.outputType, "CID");
  EXPECT_EQ(c.sg.serverMode, 0);
  EXPECT_EQ(c.sg.sgPort, 1025);
  EXPECT_EQ(c.sg.heartbeat, 30);
  EXPECT_STREQ(c.sg.receiverType, "MLR2000");
  EXPECT_EQ(c.sg.baudRate, 9600);
  EXPECT_STREQ(c.sg.parityType, "None");
  EXPECT_STREQ(c.sg.rr, "01");
  EXPECT_STREQ(c.sg.lll, "001");
  EXPECT_EQ(c.a685.serialNumber, 2);
  EXPECT_STREQ(c.a685.r, "1");
  EXPECT_EQ(c.manitou.port, 1026);
  EXPECT_EQ(c.manitou.heartbeatInterval, 30);
  EXPECT_EQ(c.manitou.testSignalInterval, 60);
  EXPECT_STREQ(c.manitou.eventID, "*RP");
  EXPECT_STREQ(c.sbn.ip, "127.0.0.1");
  EXPECT_EQ(c.sbn.port, 1027);
}

TEST_F(ArcCfgTest, LongTextsAreCutAtTheirWidth) {
  const std::string x(100, 'x');
  const struct {
    Walk where;
    size_t width;
    char* (*field)(tagArcCnf&);
  } cases[] = {
      {{"Config", "Protocol", "Type"}, 16, [](tagArcCnf& c) { return c.type; }},
      {{"Config", "SGConfig", "PortType"}, 16, [](tagArcCnf& c) { return c.sg.portType; }},
      {{"Config", "SGConfig", "PlatformIP"}, 16, [](tagArcCnf& c) { return c.sg.platformIP; }},
      {{"Config", "SGConfig", "ReceiverType"}, 32, [](tagArcCnf& c) { return c.sg.receiverType; }},
      {{"Config", "SGConfig", "SerialPort", "ParityType"}, 8, [](tagArcCnf& c) { return c.sg.parityType; }},
      {{"Config", "SGConfig", "SerialPort", "StopBits"}, 8, [](tagArcCnf& c) { return c.sg.stopBits; }},
      {{"Config", "SGConfig", "RR"}, 2, [](tagArcCnf& c) { return c.sg.rr; }},
      {{"Config", "SGConfig", "LLL"}, 3, [](tagArcCnf& c) { return c.sg.lll; }},
      {{"Config", "A685Config", "SerialPort", "ParityType"}, 8, [](tagArcCnf& c) { return c.a685.parityType; }},
      {{"Config", "A685Config", "R"}, 2, [](tagArcCnf& c) { return c.a685.r; }},
      {{"Config", "A685Config", "L"}, 3, [](tagArcCnf& c) { return c.a685.l; }},
      {{"Config", "ManitouConfig", "IP"}, 16, [](tagArcCnf& c) { return c.manitou.ip; }},
      {{"Config", "ManitouConfig", "Line"}, 3, [](tagArcCnf& c) { return c.manitou.line; }},
      {{"Config", "ManitouConfig", "SignalID"}, 32, [](tagArcCnf& c) { return c.manitou.signalID; }},
      {{"Config", "ManitouConfig", "EventType"}, 32, [](tagArcCnf& c) { return c.manitou.eventType; }},
      {{"Config", "ManitouConfig", "EventID"}, 32, [](tagArcCnf& c) { return c.manitou.eventID; }},
      {{"Config", "SBNConfig", "IP"}, 16, [](tagArcCnf& c) { return c.sbn.ip; }},
  };
  for (const auto& c : cases) set(c.where, x);
  tagArcCnf got = load();
  for (const auto& c : cases) {
    EXPECT_EQ(std::string(c.field(got)), x.substr(0, c.width)) << *(c.where.end() - 1);
  }
  // The fields next to the cut ones are intact.
  EXPECT_EQ(got.enable, 0);
  EXPECT_EQ(got.sg.heartbeatEnable, 0);
  EXPECT_EQ(got.manitou.port, 1026);
}

TEST_F(ArcCfgTest, SwitchesNumbersAndAbsentElements) {
  set({"Config", "Protocol", "Enable"}, "01");
  set({"Config", "SGConfig", "ServerMode"}, "true");
  set({"Config", "SGConfig", "HeartbeatEnable"}, "1");
  set({"Config", "SGConfig", "SerialPort", "SerialNumber"}, "COM1");
  set({"Config", "SGConfig", "SerialPort", "BaudRate"}, " 19200baud");
  set({"Config", "SGConfig", "SerialPort", "DataBits"}, "");
  set({"Config", "A685Config", "SerialPort", "BaudRate"}, "fast");
  set({"Config", "ManitouConfig", "Port"}, "12ab");
  set({"Config", "ManitouConfig", "LinkMode"}, "x");
  tagArcCnf c = load();
  EXPECT_EQ(c.enable, 0);
  EXPECT_EQ(c.sg.serverMode, 0);
  EXPECT_EQ(c.sg.heartbeatEnable, 1);
  EXPECT_EQ(c.sg.serialNumber, -1);
  EXPECT_EQ(c.sg.baudRate, 19200);
  EXPECT_EQ(c.sg.dataBits, -1);
  EXPECT_EQ(c.a685.baudRate, -1);
  EXPECT_EQ(c.manitou.port, 12);
  EXPECT_EQ(c.manitou.linkMode, 0);

  // Absent elements: defaults where the schema gives one, the value in
  // memory where it says keep.
  for (Walk w : {Walk{"Config", "Protocol", "Enable"}, Walk{"Config", "Protocol", "Type"},
                 Walk{"Config", "SGConfig", "PortType"}, Walk{"Config", "SGConfig", "ServerMode"},
                 Walk{"Config", "SGConfig", "PlatformIP"}, Walk{"Config", "SGConfig", "SGPort"},
                 Walk{"Config", "SGConfig", "HeartbeatEnable"}, Walk{"Config", "SGConfig", "ReceiverType"},
                 Walk{"Config", "SGConfig", "RR"}, Walk{"Config", "SGConfig", "LLL"},
                 Walk{"Config", "A685Config", "R"}, Walk{"Config", "A685Config", "L"},
                 Walk{"Config", "ManitouConfig", "IP"}, Walk{"Config", "ManitouConfig", "Port"},
                 Walk{"Config", "ManitouConfig", "Line"}, Walk{"Config", "ManitouConfig", "LinkMode"},
                 Walk{"Config", "ManitouConfig", "HeartbeatInterval"},
                 Walk{"Config", "ManitouConfig", "TestSignalInterval"}, Walk{"Config", "ManitouConfig", "SignalID"},
                 Walk{"Config", "ManitouConfig", "EventType"}, Walk{"Config", "ManitouConfig", "EventID"},
                 Walk{"Config", "SBNConfig", "IP"}, Walk{"Config", "SBNConfig", "Port"}}) {
    remove(w);
  }
  save();
  c.enable = 1;
  std::strcpy(c.type, "SBN");
  std::strcpy(c.sg.portType, "RS232");
  std::strcpy(c.sg.platformIP, "10.1.1.1");
  c.sg.sgPort = 4000;
  std::strcpy(c.sg.receiverType, "other");
  std::strcpy(c.sg.rr, "77");
  std::strcpy(c.sg.lll, "777");
  std::strcpy(c.a685.r, "9");
  std::strcpy(c.a685.l, "9");
  std::strcpy(c.manitou.ip, "10.2.2.2");
  c.manitou.port = 5000;
  std::strcpy(c.manitou.line, "9");
  c.manitou.linkMode = 3;
  c.manitou.heartbeatInterval = 1;
  c.manitou.testSignalInterval = 1;
  std::strcpy(c.manitou.signalID, "S");
  std::strcpy(c.manitou.eventType, "T");
  std::strcpy(c.manitou.eventID, "I");
  std::strcpy(c.sbn.ip, "10.3.3.3");
  c.sbn.port = 6000;
  // Put the values in memory without touching the file.
  oxtest::FaultEnv failing;
  failing.failOn(oxtest::FaultEnv::kOpen, EACCES);
  {
    oxtest::ScopedEnv scoped(&failing);
    EXPECT_EQ(arc_->setARCParam(c), 9);
  }
  ASSERT_TRUE(arc_->loadFile());
  c = record(*arc_);
  EXPECT_EQ(c.enable, 0);
  EXPECT_STREQ(c.type, "Sur-Gard");
  EXPECT_STREQ(c.sg.portType, "TCP/IP");
  EXPECT_EQ(c.sg.serverMode, 1);
  EXPECT_STREQ(c.sg.platformIP, "10.1.1.1");
  EXPECT_EQ(c.sg.sgPort, 4000);
  EXPECT_EQ(c.sg.heartbeatEnable, 0);
  EXPECT_STREQ(c.sg.receiverType, "MLR2000");
  EXPECT_STREQ(c.sg.rr, "01");
  EXPECT_STREQ(c.sg.lll, "001");
  EXPECT_STREQ(c.a685.r, "1");
  EXPECT_STREQ(c.a685.l, "1");
  EXPECT_STREQ(c.manitou.ip, "10.2.2.2");
  EXPECT_EQ(c.manitou.port, 5000);
  EXPECT_STREQ(c.manitou.line, "1");
  EXPECT_EQ(c.manitou.linkMode, 3);
  EXPECT_EQ(c.manitou.heartbeatInterval, 30);
  EXPECT_EQ(c.manitou.testSignalInterval, 60);
  EXPECT_STREQ(c.manitou.signalID, "GATEWAY");
  EXPECT_STREQ(c.manitou.eventType, "SYS");
  EXPECT_STREQ(c.manitou.eventID, "*RP");
  EXPECT_STREQ(c.sbn.ip, "10.3.3.3");
  EXPECT_EQ(c.sbn.port, 6000);
}

TEST_F(ArcCfgTest, CodesOfHeartbeatAndOutputType) {
  const struct {
    const char* heartbeat;
    const char* output;
    bool loads;
    int seconds;
    const char* name;
  } cases[] = {
      {"0", "0", true, 10, "CID"}, {"1", "1", true, 30, "CID-10"}, {"1", "2", true, 30, "SIA"},
      {"2", "0", false, 0, ""},    {"x", "0", false, 0, ""},        {"0", "3", false, 10, ""},
      {"0", "SIA", false, 10, ""}, {"0", "-1", false, 10, ""},
  };
  for (const auto& c : cases) {
    set({"Config", "SGConfig", "Heartbeat"}, c.heartbeat);
    set({"Config", "SGConfig", "OutputType"}, c.output);
    SCOPED_TRACE(std::string(c.heartbeat) + "/" + c.output);
    const tagArcCnf got = load(c.loads);
    EXPECT_EQ(got.sg.heartbeat, c.seconds) << c.heartbeat;
    EXPECT_STREQ(got.sg.outputType, c.name) << c.output;
  }
}

TEST_F(ArcCfgTest, AFailureKeepsWhatWasReadBeforeIt) {
  set({"Config", "Protocol", "Enable"}, "1");
  set({"Config", "Protocol", "Type"}, "Manitou");
  set({"Config", "SGConfig", "PortType"}, "RS485");
  set({"Config", "SGConfig", "PlatformIP"}, "10.0.0.9");
  set({"Config", "SGConfig", "SGPort"}, "3000");
  set({"Config", "SGConfig", "HeartbeatEnable"}, "1");
  set({"Config", "SGConfig", "Heartbeat"}, "2");
  set({"Config", "SGConfig", "ReceiverType"}, "never read");
  const tagArcCnf c = load(false);
  EXPECT_EQ(c.enable, 1);
  EXPECT_STREQ(c.type, "Manitou");
  EXPECT_STREQ(c.sg.portType, "RS485");
  EXPECT_EQ(c.sg.serverMode, 0);
  EXPECT_STREQ(c.sg.platformIP, "10.0.0.9");
  EXPECT_EQ(c.sg.sgPort, 3000);
  EXPECT_EQ(c.sg.heartbeatEnable, 1);
  EXPECT_EQ(c.sg.heartbeat, 0);
  EXPECT_STREQ(c.sg.receiverType, "");
  EXPECT_EQ(c.a685.baudRate, 0);
}

TEST_F(ArcCfgTest, MissingBlocksAndElements) {
  oxtest::LogCapture log;
  // Without "Protocol" the type and switch keep their values.
  remove({"Config", "Protocol"});
  EXPECT_STREQ(load().type, "");
  EXPECT_EQ(record(*arc_).sg.sgPort, 1025);
  // Without the Sur-Gard block loading goes on with the next one.
  remove({"Config", "SGConfig"});
  EXPECT_EQ(load().sg.sgPort, 0);
  EXPECT_EQ(record(*arc_).a685.serialNumber, 2);
  for (const char* block : {"A685Config", "ManitouConfig", "SBNConfig"}) {
    SCOPED_TRACE(block);
    resetFile();
    remove({"Config", block});
    EXPECT_EQ(load(false).sg.sgPort, 1025);  // read before the failure
    // The writer skips a missing block.
    EXPECT_EQ(arc_->setARCParam(record(*arc_)), 0);
    EXPECT_EQ(onDisk({"Config", block}), "<missing>");
  }
  EXPECT_FALSE(log.contains("element SerialPort error"));
  EXPECT_FALSE(log.contains("xml element error"));

  const struct {
    Walk where;
    const char* message;
  } required[] = {
      {{"Config", "SGConfig", "SerialPort"}, "element SerialPort error"},
      {{"Config", "A685Config", "SerialPort"}, "element SerialPort error"},
      {{"Config", "SGConfig", "SerialPort", "SerialNumber"}, "xml element error"},
      {{"Config", "SGConfig", "SerialPort", "StopBits"}, "xml element error"},
      {{"Config", "A685Config", "SerialPort", "DataBits"}, "xml element error"},
      {{"Config", "A685Config", "SerialPort", "ParityType"}, "xml element error"},
      {{"Config", "SGConfig", "Heartbeat"}, nullptr},
      {{"Config", "SGConfig", "OutputType"}, nullptr},
  };
  for (const auto& r : required) {
    SCOPED_TRACE(*(r.where.end() - 1));
    resetFile();
    remove(r.where);
    oxtest::LogCapture one;
    tagArcCnf c = load(false);
    if (r.message) {
      EXPECT_TRUE(one.has(5, r.message));
    } else {
      EXPECT_TRUE(one.entries().empty());
    }
    // Inside a block that exists, the writer needs every element: it fails
    // and leaves the file as it was.
    const std::string before = oxtest::readFile(path("ARCConfig.xml"));
    c.sg.heartbeat = 10;
    std::strcpy(c.sg.outputType, "SIA");
    EXPECT_EQ(arc_->setARCParam(c), 9);
    EXPECT_EQ(oxtest::readFile(path("ARCConfig.xml")), before);
  }
}

TEST_F(ArcCfgTest, AForeignRootOrUnreadableFile) {
  CARCCfg arc;
  ASSERT_TRUE(arc.loadFile());
  const tagArcCnf before = record(arc);

  oxtest::writeFile(path("ARCConfig.xml"), "<Other><Protocol><Type>SBN</Type></Protocol></Other>");
  EXPECT_TRUE(arc.loadFile());
  tagArcCnf after = record(arc);
  EXPECT_EQ(std::memcmp(&before, &after, sizeof before), 0);
  // The writer saves such a file unchanged.
  EXPECT_EQ(arc.setARCParam(after), 0);
  EXPECT_EQ(oxtest::readFile(path("ARCConfig.xml")).find("<Type>SBN</Type>") != std::string::npos, true);

  oxtest::LogCapture log;
  oxtest::writeFile(path("ARCConfig.xml"), "<Config><Protocol>");
  EXPECT_FALSE(arc.loadFile());
  EXPECT_TRUE(log.has(5, "ARCConfig.xml file is not exist"));
  ::unlink(path("ARCConfig.xml").c_str());
  EXPECT_EQ(arc.setARCParam(after), 9);
  EXPECT_TRUE(log.has(5, "set ARCConfig.xml file failed"));
  EXPECT_FALSE(oxtest::fileExists(path("ARCConfig.xml")));  // never created
}

TEST_F(ArcCfgTest, SurGardPortIsCheckedOnlyInServerModeAndWhenItChanges) {
  oxtest::LoopbackListener busy;
  ASSERT_GT(busy.port(), 0);
  const std::string busyPort = std::to_string(busy.port());
  const std::string free = std::to_string(oxtest::freeLoopbackPort());
  CARCCfg arc;
  oxtest::LogCapture log;
  // Each row changes the file, loads it into the same object and sees the
  // port: client mode takes a busy port; in server mode the same port as in
  // memory is not checked, a free one is taken, a busy one is refused.
  const struct {
    const char* element;
    std::string text;
    std::string port;
  } rows[] = {{"SGPort", busyPort, busyPort}, {"ServerMode", "1", busyPort}, {"SGPort", free, free},
              {"SGPort", busyPort, "0"}};
  for (const auto& row : rows) {
    set({"Config", "SGConfig", row.element}, row.text);
    save();
    ASSERT_TRUE(arc.loadFile());
    EXPECT_EQ(std::to_string(record(arc).sg.sgPort), row.port) << row.element << "=" << row.text;
    EXPECT_EQ(log.entries().empty(), row.port != "0");
  }
  // The refusal is logged with the port in force before, and 0 is written
  // back at once, the rest of the file untouched; loading went on.
  EXPECT_TRUE(log.has(4, "[port=" + free + "] is invalied."));
  set({"Config", "SGConfig", "SGPort"}, "0");
  EXPECT_EQ(oxtest::readFile(path("ARCConfig.xml")), doc_.ToString());
  EXPECT_EQ(record(arc).sg.heartbeat, 30);

  // When the rewrite cannot be written, loading fails.
  set({"Config", "SGConfig", "SGPort"}, busyPort);
  save();
  oxtest::FaultEnv failing;
  failing.failOn(oxtest::FaultEnv::kRename, EIO);
  oxtest::ScopedEnv scoped(&failing);
  EXPECT_FALSE(CARCCfg().loadFile());
  EXPECT_EQ(onDisk({"Config", "SGConfig", "SGPort"}), busyPort);
}

TEST_F(ArcCfgTest, RoundTripThroughTheRecordIsByteExact) {
  CARCCfg arc;
  ASSERT_TRUE(arc.loadFile());
  tagArcCnf c = record(arc);
  fill(c.type, "SIA-Receiver-16c");
  c.enable = 1;
  fill(c.sg.portType, "RS232-serial-16c");
  fill(c.sg.outputType, "CID-10");
  c.sg.serverMode = 1;
  c.sg.sgPort = oxtest::freeLoopbackPort();
  c.sg.heartbeat = 10;
  fill(c.sg.platformIP, "192.168.100.200");
  fill(c.sg.receiverType, "MLR2-DG with 32 characters max..");
  c.sg.heartbeatEnable = 1;
  c.sg.serialNumber = 4;
  c.sg.baudRate = 115200;
  c.sg.dataBits = 7;
  fill(c.sg.parityType, "Even");
  fill(c.sg.stopBits, "2");
  fill(c.sg.rr, "12");
  fill(c.sg.lll, "345");
  c.a685.serialNumber = -3;
  c.a685.baudRate = 2400;
  c.a685.dataBits = 5;
  fill(c.a685.parityType, "Odd");
  fill(c.a685.stopBits, "1.5");
  fill(c.a685.r, "7");
  fill(c.a685.l, "88");
  fill(c.manitou.ip, "10.20.30.40");
  c.manitou.port = 65535;
  fill(c.manitou.line, "999");
  c.manitou.linkMode = 2;
  c.manitou.testSignalInterval = 3600;
  fill(c.manitou.signalID, "GW <&> \"1\"");
  fill(c.manitou.eventType, "ALARM");
  fill(c.manitou.eventID, "*AB");
  fill(c.sbn.ip, "172.16.0.1");
  c.sbn.port = 2;
  ASSERT_EQ(arc.setARCParam(c), 0);

  CARCCfg fresh;
  ASSERT_TRUE(fresh.loadFile());
  const tagArcCnf back = record(fresh);
  EXPECT_EQ(std::memcmp(&back, &c, sizeof c), 0);
  EXPECT_EQ(onDisk({"Config", "SGConfig", "Heartbeat"}), "0");
  EXPECT_EQ(onDisk({"Config", "SGConfig", "OutputType"}), "1");
  EXPECT_EQ(onDisk({"Config", "SGConfig", "ServerMode"}), "1");
}

TEST_F(ArcCfgTest, ManitouHeartbeatIntervalLastsUntilTheNextLoad) {
  CARCCfg arc;
  ASSERT_TRUE(arc.loadFile());
  tagArcCnf c = record(arc);
  c.manitou.heartbeatInterval = 90;
  ASSERT_EQ(arc.setARCParam(c), 0);
  EXPECT_EQ(record(arc).manitou.heartbeatInterval, 90);
  EXPECT_EQ(onDisk({"Config", "ManitouConfig", "HeartbeatInterval"}), "30");
  ASSERT_TRUE(arc.loadFile());
  EXPECT_EQ(record(arc).manitou.heartbeatInterval, 30);
}

TEST_F(ArcCfgTest, UnsupportedHeartbeatOrOutputTypeFailsTheWriteButStaysInMemory) {
  CARCCfg arc;
  ASSERT_TRUE(arc.loadFile());
  const std::string before = oxtest::readFile(path("ARCConfig.xml"));
  const struct {
    int heartbeat;
    const char* output;
    const char* message;
  } cases[] = {{20, "CID", "Heartbeat is not support"}, {30, "cid", "OutputType is not support"},
               {10, "", "OutputType is not support"}};
  for (const auto& k : cases) {
    oxtest::LogCapture log;
    tagArcCnf c = record(arc);
    c.enable = 1;
    c.sg.heartbeat = k.heartbeat;
    std::strcpy(c.sg.outputType, k.output);
    EXPECT_EQ(arc.setARCParam(c), 9);
    EXPECT_TRUE(log.has(5, k.message));
    EXPECT_TRUE(log.has(5, "set ARCConfig.xml file failed"));
    EXPECT_EQ(oxtest::readFile(path("ARCConfig.xml")), before);
    EXPECT_EQ(record(arc).sg.heartbeat, k.heartbeat);
    EXPECT_STREQ(record(arc).sg.outputType, k.output);
    EXPECT_EQ(record(arc).enable, 1);
  }
}

TEST_F(ArcCfgTest, UnterminatedTextsFromTheCallerStayWithinTheirFields) {
  CARCCfg arc;
  ASSERT_TRUE(arc.loadFile());
  tagArcCnf c = record(arc);
  std::memset(c.type, 'T', sizeof c.type);
  std::memset(c.sg.lll, 'L', sizeof c.sg.lll);
  std::memset(c.sbn.ip, '9', sizeof c.sbn.ip);
  ASSERT_EQ(arc.setARCParam(c), 0);
  EXPECT_EQ(onDisk({"Config", "Protocol", "Type"}), std::string(16, 'T'));
  EXPECT_EQ(onDisk({"Config", "SGConfig", "LLL"}), "LLL");
  EXPECT_EQ(onDisk({"Config", "SBNConfig", "IP"}), std::string(16, '9'));
}

TEST_F(ArcCfgTest, BackupOfAnUpgradeIsMergedAndItsEnableMoved) {
  // The previous release's file: the enable switch under SGConfig, no
  // Protocol block, and the user's own values.
  CXmlBase old;
  ASSERT_EQ(old.LoadFile(path("ARCConfig.xml")), 1);
  ASSERT_TRUE(xmlWalk(old, {"Config", "Protocol"}));
  ASSERT_TRUE(old.RemoveNode());
  ASSERT_TRUE(xmlWalk(old, {"Config", "SGConfig"}));
  ASSERT_TRUE(OxConfigMgr::xmlSetChildText(old, "Enable", "1"));
  ASSERT_TRUE(OxConfigMgr::xmlSetChildText(old, "SGPort", "5555"));
  ASSERT_TRUE(xmlWalk(old, {"Config", "SBNConfig"}));
  ASSERT_TRUE(OxConfigMgr::xmlSetChildText(old, "Port", "7777"));
  ASSERT_EQ(old.WriteToFile(path("ARCConfig_Backup.xml")), 1);

  CARCCfg arc;
  ASSERT_TRUE(arc.loadFile());
  EXPECT_FALSE(oxtest::fileExists(path("ARCConfig_Backup.xml")));
  EXPECT_EQ(onDisk({"Config", "Protocol", "Enable"}), "1");
  EXPECT_EQ(onDisk({"Config", "SGConfig", "Enable"}), "<missing>");  // the new layout stays
  EXPECT_EQ(onDisk({"Config", "SGConfig", "SGPort"}), "5555");
  EXPECT_EQ(record(arc).enable, 1);
  EXPECT_EQ(record(arc).sbn.port, 7777);

  // With "0" under SGConfig the value of the merge stays.
  ASSERT_TRUE(xmlWalk(old, {"Config", "SGConfig"}));
  ASSERT_TRUE(OxConfigMgr::xmlSetChildText(old, "Enable", "0"));
  ASSERT_TRUE(xmlWalk(old, {"Config"}));
  ASSERT_TRUE(old.AddNode("Protocol"));
  ASSERT_TRUE(old.AddNode("Enable", "1"));
  ASSERT_EQ(old.WriteToFile(path("ARCConfig_Backup.xml")), 1);
  set({"Config", "Protocol", "Enable"}, "0");
  save();
  ASSERT_TRUE(arc.loadFile());
  EXPECT_EQ(onDisk({"Config", "Protocol", "Enable"}), "1");
  EXPECT_FALSE(oxtest::fileExists(path("ARCConfig_Backup.xml")));

  // A merge that cannot be written keeps the backup for the next load.
  ASSERT_EQ(old.WriteToFile(path("ARCConfig_Backup.xml")), 1);
  save();
  {
    oxtest::FaultEnv failing;
    failing.failOn(oxtest::FaultEnv::kRename, ENOSPC);
    oxtest::ScopedEnv scoped(&failing);
    arc.copyBackupConfig();
  }
  EXPECT_TRUE(oxtest::fileExists(path("ARCConfig_Backup.xml")));
  EXPECT_EQ(onDisk({"Config", "Protocol", "Enable"}), "0");

  // An unreadable backup is left in place as well.
  oxtest::writeFile(path("ARCConfig_Backup.xml"), "<Config>");
  ASSERT_TRUE(arc.loadFile());
  EXPECT_TRUE(oxtest::fileExists(path("ARCConfig_Backup.xml")));
}

}  // namespace
