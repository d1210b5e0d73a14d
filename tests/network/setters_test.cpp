// The setters of CNetworkCfg, driven by one table: per setter the element(s)
// it changes, whether an unchanged value returns at once, and whether memory
// follows the new value (never before the file holds it).
#include <oxconfigmgr/OxNetworkCfg.h>

#include <cerrno>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "support/network_support.h"

using OxConfigMgr::CNetworkCfg;

namespace {

enum class Memory {
  kNever,       // the file only: the getter keeps the loaded value
  kReplaced,    // once the write landed, each value whose text was replaced
  kAfterWrite,  // once the write landed, also when the element is missing
};

using Values = std::vector<int>;

struct SetterCase {
  const char* name;
  std::vector<std::string> path;    // from "Network" to the parent of the leaves
  std::vector<std::string> leaves;  // one, or two for a pair
  bool unchangedTest;
  Memory memory;
  std::function<uint32_t(CNetworkCfg&, const Values&)> set;
  std::function<Values(const CNetworkCfg&)> get;
  Values loaded;                  // empty: a number of its own, from kOwnNumbers on
  const char* newText = nullptr;  // written for the new value when not its number: the mapping switches
};
constexpr int kOwnNumbers = 1000;
std::ostream& operator<<(std::ostream& os, const SetterCase& c) { return os << c.name; }

SetterCase port(const char* name, std::vector<std::string> path, const char* leaf, bool unchanged, Memory memory,
                uint32_t (CNetworkCfg::*set)(unsigned short), uint16_t (CNetworkCfg::*get)() const) {
  return {name, std::move(path), {leaf}, unchanged, memory,
          [set](CNetworkCfg& c, const Values& v) { return (c.*set)(static_cast<unsigned short>(v[0])); },
          [get](const CNetworkCfg& c) { return Values{(c.*get)()}; }, {}};
}

template <void (CNetworkCfg::*Get)(uint16_t&, uint16_t&) const>
Values getPair(const CNetworkCfg& c) {
  uint16_t a = 0, b = 0;
  (c.*Get)(a, b);
  return {a, b};
}
template <uint32_t (CNetworkCfg::*Set)(unsigned short, unsigned short)>
uint32_t setPair(CNetworkCfg& c, const Values& v) {
  return (c.*Set)(static_cast<unsigned short>(v[0]), static_cast<unsigned short>(v[1]));
}

// The row of a port setter, named after it.
#define PORT(set, get, path, leaf, unchanged, memory) port(#set, path, leaf, unchanged, memory, &C::set, &C::get)

std::vector<SetterCase> cases() {
  using C = CNetworkCfg;
  const Memory M = Memory::kReplaced, N = Memory::kNever, W = Memory::kAfterWrite;
  const bool Y = true;
  const char *P = "Port", *E = "ExternalPort";
  const std::vector<std::string> pss = {"PSS", "Upload"};
  auto in = [](const char* e) { return std::vector<std::string>{"PortMapping", e}; };
  std::vector<SetterCase> v = {
      PORT(setHttpPort, getHttpPort, {"HTTP"}, P, Y, M),
      PORT(setHttpsPort, getHttpsPort, {"HTTPS"}, P, Y, M),
      PORT(setRtspPort, getRtspPort, {"RTSP"}, P, Y, W),
      PORT(setExtHttpPort, getExtHttpPort, {"HTTP"}, E, Y, M),
      PORT(setExtHttpsPort, getExtHttpsPort, {"HTTPS"}, E, Y, M),
      PORT(setExtRtspPort, getExtRtspPort, {"RTSP"}, E, Y, M),
      PORT(setPssUploadPort, getPssUploadPort, pss, P, !Y, N),
      PORT(setExtPssUploadPort, getExtPssUploadPort, pss, E, Y, N),
      PORT(setLumenRegPort, getLumenRegPort, in("LumenReg"), P, !Y, N),
      PORT(setLumenAlarmPort, getLumenAlarmPort, in("LumenAlarm"), P, !Y, N),
      PORT(setLumenV5RegPort, getLumenV5RegPort, in("LumenV5Reg"), P, !Y, N),
      PORT(setLumenV5AlarmPort, getLumenV5AlarmPort, in("LumenV5Alarm"), P, !Y, N),
      PORT(setLumenV5VedioAlarmPort, getLumenV5VideoAlarmPort, in("LumenV5VideoAlarm"), P, !Y, N),
      PORT(setLumenV5StreamPort, getLumenV5StreamPort, in("LumenV5Stream"), P, !Y, N),
      PORT(setLumenV5PlayBackPort, getLumenV5PlayBackPort, in("LumenV5PlayBack"), P, !Y, N),
      PORT(setLumenV5TwowayAudioPort, getLumenV5TwowayAudioPort, in("LumenV5TwoWayAudio"), P, !Y, N),
      PORT(setLumenV5AcsAlarmPort, getLumenV5AcsAlarmPort, in("LumenV5AcsAlarm"), P, !Y, N),
      PORT(setExtLumenRegPort, getExtLumenRegPort, in("LumenReg"), E, Y, N),
      PORT(setExtLumenAlarmPort, getExtLumenAlarmPort, in("LumenAlarm"), E, Y, N),
      PORT(setExtLumenV5RegPort, getExtLumenV5RegPort, in("LumenV5Reg"), E, Y, N),
      PORT(setExtLumenV5AlarmPort, getExtLumenV5AlarmPort, in("LumenV5Alarm"), E, Y, N),
      PORT(setExtLumenV5VedioAlarmPort, getExtLumenV5VideoAlarmPort, in("LumenV5VideoAlarm"), E, Y, N),
      PORT(setExtLumenV5StreamPort, getExtLumenV5StreamPort, in("LumenV5Stream"), E, Y, N),
      PORT(setExtLumenV5PlayBackPort, getExtLumenV5PlayBackPort, in("LumenV5PlayBack"), E, Y, N),
      PORT(setExtLumenV5TwowayAudioPort, getExtLumenV5TwowayAudioPort, in("LumenV5TwoWayAudio"), E, Y, N),
      PORT(setExtLumenV5AcsAlarmPort, getExtLumenV5AcsAlarmPort, in("LumenV5AcsAlarm"), E, Y, N),
      {"setHttpsEnable", {"HTTPS"}, {"Enable"}, Y, M, [](C& c, const Values& v) { return c.setHttpsEnable(v[0]); },
       [](const C& c) { return Values{c.getHttpsEnable()}; }, {}},
      {"setLumenStreamPort", in("LumenStream"), {"MinPort", "MaxPort"}, !Y, N,
       setPair<&C::setLumenStreamPort>, getPair<&C::getLumenStreamPort>, {}},
      {"setExtLumenStreamPort", in("LumenStream"), {"ExternalMinPort", "ExternalMaxPort"}, Y, N,
       setPair<&C::setExtLumenStreamPort>, getPair<&C::getExtLumenStreamPort>, {}},
      {"setDevKeepAliveParam", {"HeartbeatParam"}, {"KeepAliveSeconds", "KeepAliveCount"}, !Y, M,
       setPair<&C::setDevKeepAliveParam>, getPair<&C::getDevKeepAliveParam>, {}},
      // Kept as in the factory section (the type always loads as 1).
      {"setPlatformPortMapping", {"PortMapping"}, {"PlatformEnable"}, Y, W,
       [](C& c, const Values& v) { return c.setPlatformPortMapping(v[0]); },
       [](const C& c) { return Values{c.isPlatformPortMapping()}; }, {0}, "true"},
      {"setDevicePortMapping", {"PortMapping"}, {"DeviceEnable"}, Y, W,
       [](C& c, const Values& v) { return c.setDevicePortMapping(v[0]); },
       [](const C& c) { return Values{c.isDevicePortMapping()}; }, {0}, "true"},
      {"setWISP5AlarmPortType", {"PortMapping"}, {"AlarmPortType"}, Y, W,
       [](C& c, const Values& v) { return c.setWISP5AlarmPortType(OxConfigMgr::WISP5AlarmPortType(v[0])); },
       [](const C& c) { return Values{c.getWISP5AlarmPortType()}; }, {1}},
  };
  for (size_t i = 0; i < v.size(); ++i) {
    while (v[i].loaded.size() < v[i].leaves.size()) {
      v[i].loaded.push_back(kOwnNumbers + 10 * static_cast<int>(i) + static_cast<int>(v[i].loaded.size()));
    }
  }
  return v;
}
#undef PORT

// Moves the cursor of `xml` (a whole "Config.xml") into the parent of the
// leaves of `c`.
bool enterParent(OxBase::CXmlBase& xml, const SetterCase& c) {
  bool in = xml.SetRoot() && xml.IntoElem() && xml.FindElem("Network");
  for (const auto& p : c.path) in = in && xml.IntoElem() && xml.FindElem(p.c_str());
  return in && xml.IntoElem();
}

// The factory "Config.xml" with every numeric leaf of the table set to a
// number of its own, so that each getter is seen to read its own element.
std::string fixtureConfig() {
  OxBase::CXmlBase xml;
  EXPECT_EQ(xml.LoadFile(std::string(OXCFG_FACTORY_DIR) + "/Config.xml"), 1);
  for (const SetterCase& c : cases()) {
    if (c.loaded[0] < kOwnNumbers) continue;
    EXPECT_TRUE(enterParent(xml, c)) << c.name;
    for (size_t l = 0; l < c.leaves.size(); ++l) {
      EXPECT_EQ(xml.ModifyData(c.leaves[l].c_str(), std::to_string(c.loaded[l]).c_str()), 1) << c.name;
    }
  }
  return xml.ToString();
}

class SetterTest : public nettest::NetworkTest, public ::testing::WithParamInterface<SetterCase> {
 protected:
  void SetUp() override {
    nettest::NetworkTest::SetUp();
    for (int v : c.loaded) fresh_.push_back(v + 1);
    reload();
  }
  // A new object loaded from the fixture file; loading rewrites the file in
  // its canonical form.
  void reload() {
    static const std::string fixture = fixtureConfig();
    oxtest::writeFile(path("Config.xml"), fixture);
    cfg_ = std::make_unique<CNetworkCfg>();
    ASSERT_TRUE(cfg_->loadFile());
    ASSERT_EQ(c.get(*cfg_), c.loaded);
    before_ = nettest::fileId(path("Config.xml"));
  }
  // The loaded document with the leaves set to the new values.
  std::string expectedAfterSet() const {
    OxBase::CXmlBase xml;
    EXPECT_EQ(xml.Parse(before_.content), 1);
    EXPECT_TRUE(enterParent(xml, c));
    for (size_t l = 0; l < c.leaves.size(); ++l) {
      const std::string t = c.newText ? c.newText : std::to_string(fresh_[l]);
      EXPECT_EQ(xml.ModifyData(c.leaves[l].c_str(), t.c_str()), 1);
    }
    return xml.ToString();
  }
  const SetterCase& c = GetParam();
  Values fresh_;
  std::unique_ptr<CNetworkCfg> cfg_;
  nettest::FileId before_;
};

TEST_P(SetterTest, TheLoadedValueThenANewOne) {
  // The loaded value: without the unchanged test the file is rewritten as it
  // was; with it, the file is not touched.
  EXPECT_EQ(c.set(*cfg_, c.loaded), 0u);
  const nettest::FileId same = nettest::fileId(path("Config.xml"));
  EXPECT_EQ(same.content, before_.content);
  EXPECT_EQ(same.inode == before_.inode, c.unchangedTest);
  EXPECT_EQ(c.get(*cfg_), c.loaded);

  // A new value changes its own elements and nothing else.
  EXPECT_EQ(c.set(*cfg_, fresh_), 0u);
  EXPECT_EQ(config(), expectedAfterSet());
  EXPECT_EQ(c.get(*cfg_), c.memory == Memory::kNever ? c.loaded : fresh_);
}

TEST_P(SetterTest, FailuresGiveOneTwoOrThreeAndLeaveFileAndMemory) {
  // 2: the file cannot be read.
  oxtest::writeFile(path("Config.xml"), "<Config><Network>");
  EXPECT_EQ(c.set(*cfg_, fresh_), 2u);
  EXPECT_EQ(config(), "<Config><Network>");
  EXPECT_EQ(c.get(*cfg_), c.loaded);

  // 3: the write fails at any stage before the rename landed; once it landed
  // (only the directory sync failed) the change counts and memory follows.
  const struct {
    oxtest::FaultEnv::Op op;
    uint32_t result;
  } stages[] = {{oxtest::FaultEnv::kOpen, 3},  {oxtest::FaultEnv::kWrite, 3},  {oxtest::FaultEnv::kShortWrite, 3},
                {oxtest::FaultEnv::kFsync, 3}, {oxtest::FaultEnv::kRename, 3}, {oxtest::FaultEnv::kFlock, 3},
                {oxtest::FaultEnv::kSyncDir, 0}};
  for (const auto& stage : stages) {
    SCOPED_TRACE(stage.op);
    reload();
    oxtest::FaultEnv faults;
    faults.failOn(stage.op, ENOSPC);
    {
      oxtest::ScopedEnv scoped(&faults);
      EXPECT_EQ(c.set(*cfg_, fresh_), stage.result);
    }
    if (stage.result == 0) {
      EXPECT_EQ(config(), expectedAfterSet());
      EXPECT_EQ(c.get(*cfg_), c.memory == Memory::kNever ? c.loaded : fresh_);
    } else {
      EXPECT_EQ(nettest::fileId(path("Config.xml")), before_);
      EXPECT_EQ(c.get(*cfg_), c.loaded);
    }
  }

  // 1: the text of the last leaf is refused (a pair has replaced its first).
  reload();
  static std::string refused;
  refused = c.leaves.back();
  OxConfigMgr::netinternal::setModifyRefusalForTest([](const char* name) { return refused == name; });
  // The mapping switches ignore a refusal: the file is written as it was and
  // memory follows.
  const bool mapping = c.newText != nullptr;
  EXPECT_EQ(c.set(*cfg_, fresh_), mapping ? 0u : 1u);
  EXPECT_EQ(config(), before_.content);
  EXPECT_EQ(nettest::fileId(path("Config.xml")).inode == before_.inode, !mapping);
  EXPECT_EQ(c.get(*cfg_), mapping ? fresh_ : c.loaded);
}

INSTANTIATE_TEST_SUITE_P(EverySetter, SetterTest, ::testing::ValuesIn(cases()),
                         [](const ::testing::TestParamInfo<SetterCase>& info) { return info.param.name; });

using SetterDetailTest = nettest::NetworkTest;

TEST_F(SetterDetailTest, ProtocolPortsChangeOnlyTheFileAndMappingSwitchesWriteTrue) {
  oxtest::copyFactory(dir());
  CNetworkCfg cfg;
  ASSERT_TRUE(cfg.loadFile());
  EXPECT_EQ(cfg.setLumenRegPort(7660), 0u);
  EXPECT_EQ(text({"Network", "PortMapping", "LumenReg", "Port"}), "7660");
  EXPECT_EQ(cfg.getLumenRegPort(), 7670);

  EXPECT_EQ(cfg.setPlatformPortMapping(5), 0u);
  EXPECT_EQ(text({"Network", "PortMapping", "PlatformEnable"}), "true");
  EXPECT_TRUE(cfg.isPlatformPortMapping());
}

TEST_F(SetterDetailTest, TheAlarmPortTypeSteersTheWisp5Setters) {
  oxtest::copyFactory(dir());
  CNetworkCfg cfg;
  ASSERT_TRUE(cfg.loadFile());
  oxtest::LogCapture log;
  ASSERT_EQ(cfg.setWISP5AlarmPortType(OxConfigMgr::WISP5_ALARM_PORT_ACS), 0u);
  EXPECT_TRUE(log.has(3, "[2]setWISP5AlarmPortType"));
  EXPECT_EQ(cfg.setWISP5AlarmPort(1111), 0u);
  EXPECT_EQ(text({"Network", "PortMapping", "LumenV5AcsAlarm", "Port"}), "1111");

  // An unknown type is warned about and uses the video-alarm port.
  ASSERT_EQ(cfg.setWISP5AlarmPortType(static_cast<OxConfigMgr::WISP5AlarmPortType>(7)), 0u);
  EXPECT_EQ(cfg.setWISP5AlarmPort(3333), 0u);
  EXPECT_TRUE(log.has(4, "wisp5 Alarm port type unknown."));
  EXPECT_EQ(text({"Network", "PortMapping", "LumenV5VideoAlarm", "Port"}), "3333");
  EXPECT_EQ(text({"Network", "PortMapping", "LumenV5AcsAlarm", "Port"}), "1111");
}

}  // namespace
