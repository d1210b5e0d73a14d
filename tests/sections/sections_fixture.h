// The section tests run in a factory working directory with their own
// os-release file, and read and edit "Config.xml" as a document.
#ifndef OXCFG_TESTS_SECTIONS_SECTIONS_FIXTURE_H
#define OXCFG_TESTS_SECTIONS_SECTIONS_FIXTURE_H

#include <unistd.h>

#include <cerrno>
#include <functional>
#include <initializer_list>
#include <string>

#include "frame/config_store.h"
#include "platform/xml_base.h"
#include "support/test_support.h"

namespace oxtest {

// Fault injection, the os-release path and, when frozen, a fixed tick and
// random number.
class SectionsEnv : public FaultEnv {
 public:
  std::string osReleasePath;
  bool frozen = false;
  std::string OsReleasePath() override { return osReleasePath; }
  uint64_t TickMillis() override { return frozen ? 123456 : FaultEnv::TickMillis(); }
  uint32_t Random32() override { return frozen ? 4242 : FaultEnv::Random32(); }
};

class SectionsTest : public WorkDirTest {
 protected:
  using Walk = std::initializer_list<const char*>;
  static constexpr const char* kPrettyName = "Test Linux 7 (unit)";

  void SetUp() override {
    WorkDirTest::SetUp();
    resetToFactory();
    env_.osReleasePath = path("os-release");
    writeFile(env_.osReleasePath, std::string("ID=test\nPRETTY_NAME=\"") + kPrettyName + "\"\n");
    OxBase::Env::Install(&env_);
  }
  // Without its properties file log4cxx gets no appender (LogCapture still
  // sees every message): the factory's one trips ASan at process exit.
  void resetToFactory() {
    copyFactory(dir());
    ::unlink(path("log4cxx.properties").c_str());
  }
  std::string config() const { return readFile(path("Config.xml")); }

  // Text of the element at `walk` (from "Config" down), or "<missing>".
  std::string textAt(Walk walk, const std::string& file = "Config.xml") { return xmlText(path(file), walk); }
  // Removes the element at `walk` from "Config.xml".
  void removeAt(Walk walk) {
    OxBase::CXmlBase xml;
    ASSERT_EQ(xml.LoadFile(path("Config.xml")), 1);
    ASSERT_TRUE(OxConfigMgr::xmlWalk(xml, walk) && xml.RemoveNode());
    ASSERT_EQ(xml.WriteToFile(path("Config.xml")), 1);
  }
  // Replaces section `name` of "Config.xml" by one holding `inner`.
  void replaceSection(const std::string& name, const std::string& inner) {
    std::string text = config();
    const std::string open = "<" + name + ">", close = "</" + name + ">";
    const size_t from = text.find(open), to = text.find(close);
    ASSERT_TRUE(from != std::string::npos && to != std::string::npos) << name;
    writeFile(path("Config.xml"),
              text.replace(from, to + close.size() - from, open + inner + close));
  }

  // Result of `call` made while file operation `failing` fails; `file` must
  // come out of it unchanged.
  int untouched(const std::function<int()>& call, FaultEnv::Op failing = FaultEnv::kNone,
                const std::string& file = "Config.xml") {
    const std::string before = readFile(path(file));
    env_.failOn(failing, EIO);
    const int result = call();
    env_.failOn(FaultEnv::kNone, 0);
    EXPECT_EQ(readFile(path(file)), before);
    return result;
  }

  SectionsEnv env_;
};

}  // namespace oxtest

#endif  // OXCFG_TESTS_SECTIONS_SECTIONS_FIXTURE_H
