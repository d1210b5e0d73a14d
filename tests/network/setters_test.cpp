// The setters of CNetworkCfg, driven by one table: per setter the element(s)
// it changes, whether an unchanged value returns at once, and when memory
// follows.
#include <oxconfigmgr/OxNetworkCfg.h>

#include <cerrno>
#include <cstring>
#include <functional>
#include <string>
#include <thread>
#include <vector>

#include "platform/xml_base.h"
#include "support/network_support.h"

using OxConfigMgr::CNetworkCfg;
using OxConfigMgr::WISP5AlarmPortType;

namespace {

enum class Memory {
  kAfterModify,  // follows once the text was replaced (also when the write fails)
  kFirst,        // set before anything else
  kNever,        // the getter keeps the loaded value
  kAfterWrite,   // follows a successful write
};

struct SetterCase {
  const char* name;
  std::vector<std::string> path;    // under Network, to the parent of the leaves
  std::vector<std::string> leaves;  // one or two
  bool unchangedTest;
  Memory memory;
  std::function<uint32_t(CNetworkCfg&, int, int)> set;
  std::function<std::vector<int>(const CNetworkCfg&)> get;
  std::vector<int> loaded;  // values of the factory section
  std::vector<int> fresh;   // the new values set
  std::vector<std::string> freshText;
};

std::ostream& operator<<(std::ostream& os, const SetterCase& c) { return os << c.name; }

using Set1 = uint32_t (CNetworkCfg::*)(unsigned short);
using Get1 = uint16_t (CNetworkCfg::*)() const;

SetterCase port(const char* name, std::vector<std::string> path, const char* leaf, bool unchanged,
                Memory memory, Set1 set, Get1 get, int loaded) {
  const int fresh = loaded == 0 ? 4321 : loaded + 1;
  return {name,
          std::move(path),
          {leaf},
          unchanged,
          memory,
          [set](CNetworkCfg& c, int a, int) { return (c.*set)(static_cast<unsigned short>(a)); },
          [get](const CNetworkCfg& c) { return std::vector<int>{(c.*get)()}; },
          {loaded},
          {fresh},
          {std::to_string(fresh)}};
}

std::vector<SetterCase> cases() {
  using C = CNetworkCfg;
  const Memory M = Memory::kAfterModify, N = Memory::kNever;
  const std::vector<std::string> pm = {"PortMapping"};
  auto in = [](const char* e) { return std::vector<std::string>{"PortMapping", e}; };
  std::vector<SetterCase> v = {
      port("setHttpPort", {"HTTP"}, "Port", true, M, &C::setHttpPort, &C::getHttpPort, 80),
      port("setHttpsPort", {"HTTPS"}, "Port", true, M, &C::setHttpsPort, &C::getHttpsPort, 443),
      port("setRtspPort", {"RTSP"}, "Port", true, Memory::kFirst, &C::setRtspPort, &C::getRtspPort, 554),
      port("setExtHttpPort", {"HTTP"}, "ExternalPort", true, M, &C::setExtHttpPort, &C::getExtHttpPort, 0),
      port("setExtHttpsPort", {"HTTPS"}, "ExternalPort", true, M, &C::setExtHttpsPort, &C::getExtHttpsPort, 0),
      port("setExtRtspPort", {"RTSP"}, "ExternalPort", true, M, &C::setExtRtspPort, &C::getExtRtspPort, 0),
      port("setPssUploadPort", {"PSS", "Upload"}, "Port", false, N, &C::setPssUploadPort, &C::getPssUploadPort,
           6011),
      port("setExtPssUploadPort", {"PSS", "Upload"}, "ExternalPort", true, N, &C::setExtPssUploadPort,
           &C::getExtPssUploadPort, 0),
      port("setLumenRegPort", in("LumenReg"), "Port", false, N, &C::setLumenRegPort, &C::getLumenRegPort, 7670),
      port("setLumenAlarmPort", in("LumenAlarm"), "Port", false, N, &C::setLumenAlarmPort,
           &C::getLumenAlarmPort, 7672),
      port("setLumenV5RegPort", in("LumenV5Reg"), "Port", false, N, &C::setLumenV5RegPort,
           &C::getLumenV5RegPort, 7680),
      port("setLumenV5AlarmPort", in("LumenV5Alarm"), "Port", false, N, &C::setLumenV5AlarmPort,
           &C::getLumenV5AlarmPort, 7682),
      port("setLumenV5VedioAlarmPort", in("LumenV5VideoAlarm"), "Port", false, N, &C::setLumenV5VedioAlarmPort,
           &C::getLumenV5VideoAlarmPort, 7684),
      port("setLumenV5StreamPort", in("LumenV5Stream"), "Port", false, N, &C::setLumenV5StreamPort,
           &C::getLumenV5StreamPort, 7686),
      port("setLumenV5PlayBackPort", in("LumenV5PlayBack"), "Port", false, N, &C::setLumenV5PlayBackPort,
           &C::getLumenV5PlayBackPort, 7688),
      port("setLumenV5TwowayAudioPort", in("LumenV5TwoWayAudio"), "Port", false, N,
           &C::setLumenV5TwowayAudioPort, &C::getLumenV5TwowayAudioPort, 7690),
      port("setLumenV5AcsAlarmPort", in("LumenV5AcsAlarm"), "Port", false, N, &C::setLumenV5AcsAlarmPort,
           &C::getLumenV5AcsAlarmPort, 7692),
      port("setExtLumenRegPort", in("LumenReg"), "ExternalPort", true, N, &C::setExtLumenRegPort,
           &C::getExtLumenRegPort, 0),
      port("setExtLumenAlarmPort", in("LumenAlarm"), "ExternalPort", true, N, &C::setExtLumenAlarmPort,
           &C::getExtLumenAlarmPort, 0),
      port("setExtLumenV5RegPort", in("LumenV5Reg"), "ExternalPort", true, N, &C::setExtLumenV5RegPort,
           &C::getExtLumenV5RegPort, 0),
      port("setExtLumenV5AlarmPort", in("LumenV5Alarm"), "ExternalPort", true, N, &C::setExtLumenV5AlarmPort,
           &C::getExtLumenV5AlarmPort, 0),
      port("setExtLumenV5VedioAlarmPort", in("LumenV5VideoAlarm"), "ExternalPort", true, N,
           &C::setExtLumenV5VedioAlarmPort, &C::getExtLumenV5VideoAlarmPort, 0),
      port("setExtLumenV5StreamPort", in("LumenV5Stream"), "ExternalPort", true, N,
           &C::setExtLumenV5StreamPort, &C::getExtLumenV5StreamPort, 0),
      port("setExtLumenV5PlayBackPort", in("LumenV5PlayBack"), "ExternalPort", true, N,
           &C::setExtLumenV5PlayBackPort, &C::getExtLumenV5PlayBackPort, 0),
      port("setExtLumenV5TwowayAudioPort", in("LumenV5TwoWayAudio"), "ExternalPort", true, N,
           &C::setExtLumenV5TwowayAudioPort, &C::getExtLumenV5TwowayAudioPort, 0),
      port("setExtLumenV5AcsAlarmPort", in("LumenV5AcsAlarm"), "ExternalPort", true, N,
           &C::setExtLumenV5AcsAlarmPort, &C::getExtLumenV5AcsAlarmPort, 0),
  };
  v.push_back({"setHttpsEnable", {"HTTPS"}, {"Enable"}, true, M,
               [](C& c, int a, int) { return c.setHttpsEnable(a); },
               [](const C& c) { return std::vector<int>{c.getHttpsEnable()}; }, {1}, {-3}, {"-3"}});
  v.push_back({"setLumenStreamPort", in("LumenStream"), {"MinPort", "MaxPort"}, false, N,
               [](C& c, int a, int b) {
                 return c.setLumenStreamPort(static_cast<unsigned short>(a), static_cast<unsigned short>(b));
               },
               [](const C& c) {
                 uint16_t lo, hi;
                 c.getLumenStreamPort(lo, hi);
                 return std::vector<int>{lo, hi};
               },
               {20000, 20999}, {21000, 21999}, {"21000", "21999"}});
  v.push_back({"setExtLumenStreamPort", in("LumenStream"), {"ExternalMinPort", "ExternalMaxPort"}, true, N,
               [](C& c, int a, int b) {
                 return c.setExtLumenStreamPort(static_cast<unsigned short>(a), static_cast<unsigned short>(b));
               },
               [](const C& c) {
                 uint16_t lo, hi;
                 c.getExtLumenStreamPort(lo, hi);
                 return std::vector<int>{lo, hi};
               },
               {0, 0}, {31000, 31999}, {"31000", "31999"}});
  v.push_back({"setDevKeepAliveParam", {"HeartbeatParam"}, {"KeepAliveSeconds", "KeepAliveCount"}, false, M,
               [](C& c, int a, int b) {
                 return c.setDevKeepAliveParam(static_cast<unsigned short>(a), static_cast<unsigned short>(b));
               },
               [](const C& c) {
                 uint16_t s, n;
                 c.getDevKeepAliveParam(s, n);
                 return std::vector<int>{s, n};
               },
               {30, 3}, {60, 65535}, {"60", "65535"}});
  v.push_back({"setPlatformPortMapping", pm, {"PlatformEnable"}, true, Memory::kAfterWrite,
               [](C& c, int a, int) { return c.setPlatformPortMapping(a); },
               [](const C& c) { return std::vector<int>{c.isPlatformPortMapping() ? 1 : 0}; }, {0}, {1},
               {"true"}});
  v.push_back({"setDevicePortMapping", pm, {"DeviceEnable"}, true, Memory::kAfterWrite,
               [](C& c, int a, int) { return c.setDevicePortMapping(a); },
               [](const C& c) { return std::vector<int>{c.isDevicePortMapping() ? 1 : 0}; }, {0}, {1},
               {"true"}});
  v.push_back({"setWISP5AlarmPortType", pm, {"AlarmPortType"}, true, Memory::kAfterWrite,
               [](C& c, int a, int) { return c.setWISP5AlarmPortType(static_cast<WISP5AlarmPortType>(a)); },
               [](const C& c) { return std::vector<int>{c.getWISP5AlarmPortType()}; }, {1}, {2}, {"2"}});
  return v;
}

class SetterTest : public nettest::NetworkTest, public ::testing::WithParamInterface<SetterCase> {
 protected:
  void SetUp() override {
    nettest::NetworkTest::SetUp();
    writeConfig(nettest::factoryNetwork());
    // Loading rewrites the file in its canonical form and fills memory.
    ASSERT_TRUE(cfg_.loadFile());
    ASSERT_EQ(GetParam().get(cfg_), GetParam().loaded);
    before_ = nettest::fileId(path("Config.xml"));
  }

  uint32_t setLoaded() {
    const SetterCase& c = GetParam();
    return c.set(cfg_, c.loaded[0], c.loaded.size() > 1 ? c.loaded[1] : 0);
  }
  uint32_t setFresh() {
    const SetterCase& c = GetParam();
    return c.set(cfg_, c.fresh[0], c.fresh.size() > 1 ? c.fresh[1] : 0);
  }
  // The document as it was, with the leaves of the case set to `texts`.
  std::string expectedWith(const std::string& original, const std::vector<std::string>& texts) {
    OxBase::CXmlBase xml;
    EXPECT_EQ(xml.Parse(original), 1);
    EXPECT_TRUE(xml.SetRoot() && xml.IntoElem() && xml.FindElem("Network"));
    for (const auto& p : GetParam().path) EXPECT_TRUE(xml.IntoElem() && xml.FindElem(p.c_str()));
    EXPECT_TRUE(xml.IntoElem());
    for (size_t i = 0; i < texts.size(); ++i) {
      EXPECT_EQ(xml.ModifyData(GetParam().leaves[i].c_str(), texts[i].c_str()), 1);
    }
    return xml.ToString();
  }
  // Memory after a failure, before or after the text was replaced.
  std::vector<int> memoryAfter(bool textReplaced) {
    const SetterCase& c = GetParam();
    switch (c.memory) {
      case Memory::kFirst:
        return c.fresh;
      case Memory::kAfterModify:
        return textReplaced ? c.fresh : c.loaded;
      case Memory::kNever:
      case Memory::kAfterWrite:
        break;
    }
    return c.loaded;
  }

  CNetworkCfg cfg_;
  nettest::FileId before_;
};

TEST_P(SetterTest, AnUnchangedValueIsTestedOnlyWhereTheTableSays) {
  EXPECT_EQ(setLoaded(), 0u);
  const nettest::FileId after = nettest::fileId(path("Config.xml"));
  if (GetParam().unchangedTest) {
    EXPECT_EQ(after, before_) << "the file was touched";
  } else {
    EXPECT_NE(after.inode, before_.inode) << "the file was not rewritten";
    EXPECT_EQ(after.content, before_.content);
  }
  EXPECT_EQ(GetParam().get(cfg_), GetParam().loaded);
}

TEST_P(SetterTest, ANewValueChangesOnlyItsElementsAndMemoryAsTheTableSays) {
  EXPECT_EQ(setFresh(), 0u);
  EXPECT_EQ(config(), expectedWith(before_.content, GetParam().freshText));
  const bool follows = GetParam().memory != Memory::kNever;
  EXPECT_EQ(GetParam().get(cfg_), follows ? GetParam().fresh : GetParam().loaded);
}

TEST_P(SetterTest, AnUnreadableFileGivesTwo) {
  oxtest::writeFile(path("Config.xml"), "<Config><Network>");
  EXPECT_EQ(setFresh(), 2u);
  EXPECT_EQ(config(), "<Config><Network>");
  EXPECT_EQ(GetParam().get(cfg_), memoryAfter(false));
}

TEST_P(SetterTest, AFailedWriteGivesThreeAndLeavesTheFile) {
  oxtest::FaultEnv faults;
  faults.failOn(oxtest::FaultEnv::kRename, ENOSPC);
  {
    oxtest::ScopedEnv scoped(&faults);
    EXPECT_EQ(setFresh(), 3u);
  }
  EXPECT_EQ(nettest::fileId(path("Config.xml")), before_);
  EXPECT_EQ(GetParam().get(cfg_), memoryAfter(true));
}

TEST_P(SetterTest, ARefusedTextGivesOneWithoutWriting) {
  const SetterCase& c = GetParam();
  // The last leaf refuses, so a pair has changed its first element.
  static std::string refused;
  refused = c.leaves.back();
  OxConfigMgr::netinternal::setModifyRefusalForTest([](const char* name) { return refused == name; });
  const bool mapping = c.freshText[0] == "true";
  if (mapping) {
    // The mapping switches ignore a refusal: the file is written as it was
    // and memory follows.
    EXPECT_EQ(setFresh(), 0u);
    EXPECT_EQ(nettest::fileId(path("Config.xml")).content, before_.content);
    EXPECT_EQ(c.get(cfg_), c.fresh);
    return;
  }
  EXPECT_EQ(setFresh(), 1u);
  EXPECT_EQ(nettest::fileId(path("Config.xml")), before_);
  std::vector<int> expected = memoryAfter(false);
  if (c.leaves.size() == 2 && c.memory == Memory::kAfterModify) expected[0] = c.fresh[0];
  EXPECT_EQ(c.get(cfg_), expected);
}

TEST_P(SetterTest, AMissingElementIsNotCreatedAndTheFileIsRewrittenAsItWas) {
  const SetterCase& c = GetParam();
  // Without the first leaf the second is not tried either.
  OxBase::CXmlBase xml;
  ASSERT_EQ(xml.Parse(before_.content), 1);
  ASSERT_TRUE(xml.SetRoot() && xml.IntoElem() && xml.FindElem("Network"));
  for (const auto& p : c.path) ASSERT_TRUE(xml.IntoElem() && xml.FindElem(p.c_str()));
  ASSERT_TRUE(xml.RemoveNode(c.leaves[0].c_str()));
  oxtest::writeFile(path("Config.xml"), xml.ToString());
  const nettest::FileId without = nettest::fileId(path("Config.xml"));

  EXPECT_EQ(setFresh(), 0u);
  const nettest::FileId after = nettest::fileId(path("Config.xml"));
  EXPECT_NE(after.inode, without.inode);
  EXPECT_EQ(after.content, without.content);
  std::vector<int> expected = c.loaded;
  if (c.memory == Memory::kFirst || c.memory == Memory::kAfterWrite) expected = c.fresh;
  EXPECT_EQ(c.get(cfg_), expected);
}

INSTANTIATE_TEST_SUITE_P(EverySetter, SetterTest, ::testing::ValuesIn(cases()),
                         [](const ::testing::TestParamInfo<SetterCase>& info) {
                           return std::string(info.param.name);
                         });

class SetterDetailTest : public nettest::NetworkTest {
 protected:
  void SetUp() override {
    nettest::NetworkTest::SetUp();
    writeConfig(nettest::factoryNetwork());
    ASSERT_TRUE(cfg_.loadFile());
  }
  std::string text(const std::vector<std::string>& p) { return nettest::elementText(path("Config.xml"), p); }
  CNetworkCfg cfg_;
};

TEST_F(SetterDetailTest, ProtocolPortsChangeTheFileButNotTheGetters) {
  EXPECT_EQ(cfg_.setLumenRegPort(7660), 0u);
  EXPECT_EQ(text({"Network", "PortMapping", "LumenReg", "Port"}), "7660");
  EXPECT_EQ(cfg_.getLumenRegPort(), 7670);

  // The external one compares with the loaded value, not with the file.
  EXPECT_EQ(cfg_.setExtLumenRegPort(9000), 0u);
  EXPECT_EQ(text({"Network", "PortMapping", "LumenReg", "ExternalPort"}), "9000");
  const nettest::FileId before = nettest::fileId(path("Config.xml"));
  EXPECT_EQ(cfg_.setExtLumenRegPort(0), 0u);
  EXPECT_EQ(nettest::fileId(path("Config.xml")), before);
  EXPECT_EQ(text({"Network", "PortMapping", "LumenReg", "ExternalPort"}), "9000");
}

TEST_F(SetterDetailTest, WithoutPortMappingTheFileIsRewrittenUnchanged) {
  writeConfig("<Network><HTTP><Port>80</Port></HTTP></Network>");
  const std::string before = config();
  EXPECT_EQ(cfg_.setLumenRegPort(7660), 0u);
  EXPECT_EQ(cfg_.setLumenStreamPort(1, 2), 0u);
  EXPECT_EQ(cfg_.setPlatformPortMapping(1), 0u);
  OxBase::CXmlBase xml;
  ASSERT_EQ(xml.Parse(before), 1);
  EXPECT_EQ(config(), xml.ToString());
}

TEST_F(SetterDetailTest, MappingSwitchesWriteTrueOrFalseAndKeepTheArgument) {
  EXPECT_EQ(cfg_.setPlatformPortMapping(5), 0u);
  EXPECT_EQ(text({"Network", "PortMapping", "PlatformEnable"}), "true");
  EXPECT_TRUE(cfg_.isPlatformPortMapping());
  // 5 is held as given, so 1 is a change.
  const nettest::FileId before = nettest::fileId(path("Config.xml"));
  EXPECT_EQ(cfg_.setPlatformPortMapping(1), 0u);
  EXPECT_NE(nettest::fileId(path("Config.xml")).inode, before.inode);
  EXPECT_EQ(cfg_.setPlatformPortMapping(0), 0u);
  EXPECT_EQ(text({"Network", "PortMapping", "PlatformEnable"}), "false");
  EXPECT_FALSE(cfg_.isPlatformPortMapping());
  EXPECT_EQ(cfg_.setDevicePortMapping(-1), 0u);
  EXPECT_EQ(text({"Network", "PortMapping", "DeviceEnable"}), "true");
}

TEST_F(SetterDetailTest, HttpMappingNeedsTheSwitchThePortAndAnOutsideAddress) {
  EXPECT_FALSE(cfg_.isHttpMapping());
  ASSERT_EQ(cfg_.setPlatformPortMapping(1), 0u);
  EXPECT_FALSE(cfg_.isHttpMapping());  // no external port
  ASSERT_EQ(cfg_.setExtHttpPort(8080), 0u);
  // The factory outside address "0.0.0.0" loads as empty text, which is not
  // "0.0.0.0".
  EXPECT_TRUE(cfg_.isHttpMapping());
  EXPECT_FALSE(cfg_.isRtspMapping());
  ASSERT_EQ(cfg_.setExtRtspPort(8554), 0u);
  EXPECT_TRUE(cfg_.isRtspMapping());

  writeConfig("<Network><AddrList><Addr><V4><IP>10.0.0.1</IP><ExternalIP>x</ExternalIP></V4></Addr>"
              "</AddrList></Network>");
  CNetworkCfg other;
  ASSERT_TRUE(other.loadFile());
  ASSERT_EQ(other.setExtIPv4("10.0.0.1", "0.0.0.0"), 0);
  ASSERT_EQ(other.setPlatformPortMapping(1), 0u);
  ASSERT_EQ(other.setExtHttpPort(8080), 0u);
  EXPECT_FALSE(other.isHttpMapping());
}

TEST_F(SetterDetailTest, TheExternalStreamRangeIsUnchangedOnlyWhenBothBoundsAre) {
  const nettest::FileId before = nettest::fileId(path("Config.xml"));
  EXPECT_EQ(cfg_.setExtLumenStreamPort(0, 0), 0u);
  EXPECT_EQ(nettest::fileId(path("Config.xml")), before);
  EXPECT_EQ(cfg_.setExtLumenStreamPort(0, 5), 0u);
  EXPECT_EQ(text({"Network", "PortMapping", "LumenStream", "ExternalMaxPort"}), "5");
}

TEST_F(SetterDetailTest, TheAlarmPortTypeIsLoggedAndSteersTheWisp5Setters) {
  oxtest::LogCapture log;
  ASSERT_EQ(cfg_.setWISP5AlarmPortType(OxConfigMgr::WISP5_ALARM_PORT_ACS), 0u);
  EXPECT_TRUE(log.has(3, "[2]setWISP5AlarmPortType"));
  EXPECT_EQ(cfg_.getWISP5AlarmPort(), 7692);
  EXPECT_EQ(cfg_.setWISP5AlarmPort(1111), 0u);
  EXPECT_EQ(cfg_.setExtWISP5AlarmPort(2222), 0u);
  EXPECT_EQ(text({"Network", "PortMapping", "LumenV5AcsAlarm", "Port"}), "1111");
  EXPECT_EQ(text({"Network", "PortMapping", "LumenV5AcsAlarm", "ExternalPort"}), "2222");
  EXPECT_EQ(text({"Network", "PortMapping", "LumenV5VideoAlarm", "Port"}), "7684");

  // An unknown type is warned about and uses the video-alarm port.
  ASSERT_EQ(cfg_.setWISP5AlarmPortType(static_cast<WISP5AlarmPortType>(7)), 0u);
  EXPECT_EQ(text({"Network", "PortMapping", "AlarmPortType"}), "7");
  EXPECT_EQ(cfg_.setWISP5AlarmPort(3333), 0u);
  EXPECT_TRUE(log.has(4, "wisp5 Alarm port type unknown."));
  EXPECT_EQ(text({"Network", "PortMapping", "LumenV5VideoAlarm", "Port"}), "3333");
  EXPECT_EQ(cfg_.setExtWISP5AlarmPort(4444), 0u);
  EXPECT_EQ(text({"Network", "PortMapping", "LumenV5VideoAlarm", "ExternalPort"}), "4444");
  EXPECT_EQ(cfg_.getWISP5AlarmPort(), 7684);

  ASSERT_EQ(cfg_.setWISP5AlarmPortType(OxConfigMgr::WISP5_ALARM_PORT_VIDEO), 0u);
  EXPECT_EQ(cfg_.setWISP5AlarmPort(5555), 0u);
  EXPECT_EQ(text({"Network", "PortMapping", "LumenV5VideoAlarm", "Port"}), "5555");
}

TEST_F(SetterDetailTest, KeepAliveBypassesTheStoreFunctionsAndTheirMessage) {
  oxtest::LogCapture log;
  oxtest::writeFile(path("Config.xml"), "not xml");
  EXPECT_EQ(cfg_.setDevKeepAliveParam(1, 2), 2u);
  EXPECT_EQ(cfg_.setHttpPort(81), 2u);
  // Only the setter that goes through readConfigFile logs.
  int messages = 0;
  for (const auto& e : log.entries()) messages += oxtest::LogCapture::body(e.text) == "config file is not exist";
  EXPECT_EQ(messages, 1);
}

TEST_F(SetterDetailTest, TwoDifferentSettersRunningAtOnceBothPersist) {
  std::thread a([&] {
    for (int i = 1; i <= 30; ++i) cfg_.setHttpPort(static_cast<unsigned short>(1000 + i));
  });
  std::thread b([&] {
    for (int i = 1; i <= 30; ++i) cfg_.setLumenRegPort(static_cast<unsigned short>(2000 + i));
  });
  a.join();
  b.join();
  EXPECT_EQ(text({"Network", "HTTP", "Port"}), "1030");
  EXPECT_EQ(text({"Network", "PortMapping", "LumenReg", "Port"}), "2030");
  EXPECT_EQ(cfg_.getHttpPort(), 1030);
}

}  // namespace
