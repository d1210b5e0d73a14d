// Shared pieces of the section configuration tests: a factory working
// directory with its own os-release file, and helpers to read and edit the
// configuration files as documents.
#ifndef OXCFG_TESTS_SECTIONS_SECTIONS_FIXTURE_H
#define OXCFG_TESTS_SECTIONS_SECTIONS_FIXTURE_H

#include <unistd.h>

#include <initializer_list>
#include <string>

#include "frame/config_store.h"
#include "platform/xml_base.h"
#include "support/test_support.h"

namespace oxtest {

// Fault injection plus the seams the sections depend on: the os-release
// path, and optionally a frozen tick and random number.
class SectionsEnv : public FaultEnv {
 public:
  std::string osReleasePath;
  bool freezeClock = false;
  uint64_t tick = 123456;
  uint32_t random = 4242;

  std::string OsReleasePath() override {
    return osReleasePath.empty() ? FaultEnv::OsReleasePath() : osReleasePath;
  }
  uint64_t TickMillis() override { return freezeClock ? tick : FaultEnv::TickMillis(); }
  uint32_t Random32() override { return freezeClock ? random : FaultEnv::Random32(); }
};

// A working directory with the factory files and an os-release file whose
// PRETTY_NAME is kPrettyName; the environment is installed for the test.
class SectionsTest : public WorkDirTest {
 protected:
  static constexpr const char* kPrettyName = "Test Linux 7 (unit)";

  void SetUp() override {
    WorkDirTest::SetUp();
    resetToFactory();
    env_.osReleasePath = path("os-release");
    writeFile(env_.osReleasePath,
              std::string("NAME=\"Test Linux\"\nPRETTY_NAME=\"") + kPrettyName + "\"\nID=test\n");
    OxBase::Env::Install(&env_);
  }

  // Lays out the factory files again. Without a properties file the library
  // configures no log4cxx appender (messages still reach LogCapture): the
  // rolling appender of the factory file trips AddressSanitizer inside
  // log4cxx 1.0 at process exit.
  void resetToFactory() {
    copyFactory(dir());
    ::unlink(path("log4cxx.properties").c_str());
  }

  std::string config() const { return readFile(path("Config.xml")); }

  // Text of the element at `walk` (from "Config" down) in `file`, or
  // "<missing>".
  std::string textAt(std::initializer_list<const char*> walk,
                     const std::string& file = "Config.xml") {
    OxBase::CXmlBase xml;
    if (xml.LoadFile(path(file)) != 1) return "<unreadable>";
    if (!OxConfigMgr::xmlWalk(xml, walk)) return "<missing>";
    return xml.GetData();
  }

  // Number of elements `name` directly under the element at `walk`.
  int countAt(std::initializer_list<const char*> walk, const char* name,
              const std::string& file = "Config.xml") {
    OxBase::CXmlBase xml;
    if (xml.LoadFile(path(file)) != 1 || !OxConfigMgr::xmlWalk(xml, walk) || !xml.IntoElem()) {
      return 0;
    }
    int n = 0;
    for (bool more = xml.FindElem(name); more; more = xml.FindNextElem(name)) ++n;
    return n;
  }

  // Removes the element at `walk` from `file`.
  void removeAt(std::initializer_list<const char*> walk, const std::string& file = "Config.xml") {
    OxBase::CXmlBase xml;
    ASSERT_EQ(xml.LoadFile(path(file)), 1);
    ASSERT_TRUE(OxConfigMgr::xmlWalk(xml, walk));
    ASSERT_TRUE(xml.RemoveNode());
    ASSERT_EQ(xml.WriteToFile(path(file)), 1);
  }

  // Sets the text of the element at `walk` in `file`.
  void setAt(std::initializer_list<const char*> walk, const std::string& text,
             const std::string& file = "Config.xml") {
    OxBase::CXmlBase xml;
    ASSERT_EQ(xml.LoadFile(path(file)), 1);
    ASSERT_TRUE(OxConfigMgr::xmlWalk(xml, walk));
    ASSERT_TRUE(xml.SetData(text.c_str()));
    ASSERT_EQ(xml.WriteToFile(path(file)), 1);
  }

  // Replaces the section `name` of "Config.xml" with `xmlText`.
  void replaceSection(const std::string& name, const std::string& xmlText) {
    std::string text = config();
    const std::string open = "<" + name + ">", close = "</" + name + ">";
    size_t from = text.find(open), to = text.find(close);
    ASSERT_NE(from, std::string::npos);
    ASSERT_NE(to, std::string::npos);
    text.replace(from, to + close.size() - from, xmlText);
    writeFile(path("Config.xml"), text);
  }

  SectionsEnv env_;
};

}  // namespace oxtest

#endif  // OXCFG_TESTS_SECTIONS_SECTIONS_FIXTURE_H
