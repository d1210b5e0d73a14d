// Fixtures of the network tests: an environment with chosen adapters and a
// settable clock, a "Config.xml" around a chosen "Network" section, and file
// identity checks.
#ifndef OXCFG_TESTS_SUPPORT_NETWORK_SUPPORT_H
#define OXCFG_TESTS_SUPPORT_NETWORK_SUPPORT_H

#include <sys/stat.h>

#include <atomic>
#include <cerrno>
#include <mutex>
#include <string>
#include <vector>

#include "network/network_internal.h"
#include "platform/xml_base.h"
#include "support/test_support.h"

namespace nettest {

using OxConfigMgr::netinternal::fieldText;

// Adapters and clock chosen by the test; everything else is real.
class AdapterEnv : public OxBase::EnvWrapper {
 public:
  AdapterEnv() : EnvWrapper(OxBase::Env::Default()) {}
  void setAdapters(std::vector<OxBase::AdapterAddress> adapters) {
    std::lock_guard<std::mutex> lock(mutex_);
    adapters_ = std::move(adapters);
  }
  void failAdapters(int err) { adapterErrno_ = err; }
  void setNow(int64_t micros) { now_ = micros; }
  void advance(int64_t micros) { now_ += micros; }

  int GetAdapters(std::vector<OxBase::AdapterAddress>* out) override {
    if (adapterErrno_ != 0) {
      errno = adapterErrno_;
      return -1;
    }
    std::lock_guard<std::mutex> lock(mutex_);
    *out = adapters_;
    return 0;
  }
  int64_t NowMicros() override { return now_; }

 private:
  std::mutex mutex_;
  std::vector<OxBase::AdapterAddress> adapters_;
  std::atomic<int> adapterErrno_{0};
  std::atomic<int64_t> now_{1000000000000};  // far from 0: the first refresh runs
};

inline OxBase::AdapterAddress adapter(const std::string& name, std::vector<std::string> ips) {
  return OxBase::AdapterAddress{name, name + " description", std::move(ips)};
}

// Identity of a file: a rewrite (atomic rename) gives a new inode.
struct FileId {
  ino_t inode = 0;
  std::string content;
  bool operator==(const FileId& o) const { return inode == o.inode && content == o.content; }
};
inline FileId fileId(const std::string& path) {
  struct stat st {};
  ::stat(path.c_str(), &st);
  return FileId{st.st_ino, oxtest::readFile(path)};
}

// Text of the element at `path` (from the root's children) of a file; ""
// when missing.
inline std::string elementText(const std::string& file, const std::vector<std::string>& path) {
  OxBase::CXmlBase xml;
  if (xml.LoadFile(file) != 1 || !xml.SetRoot()) return "";
  for (const auto& name : path) {
    if (!xml.IntoElem() || !xml.FindElem(name.c_str())) return "";
  }
  return xml.GetData();
}

// A test in a fresh directory with the adapters and clock of env_, the
// adapter refresh forgotten and the text refusal seam off.
class NetworkTest : public oxtest::WorkDirTest {
 protected:
  void SetUp() override {
    oxtest::WorkDirTest::SetUp();
    OxConfigMgr::netinternal::resetAdapterRefreshForTest();
    OxBase::Env::Install(&env_);
  }
  void TearDown() override {
    OxConfigMgr::netinternal::setModifyRefusalForTest(nullptr);
    oxtest::WorkDirTest::TearDown();  // restores the default Env
  }
  // "Config.xml" holding only a "Network" section with `inside`.
  void writeNetwork(const std::string& inside) {
    oxtest::writeFile(path("Config.xml"), "<Config><Network>" + inside + "</Network></Config>");
  }
  std::string config() const { return oxtest::readFile(path("Config.xml")); }
  std::string text(const std::vector<std::string>& p) const { return elementText(path("Config.xml"), p); }

  AdapterEnv env_;
};

}  // namespace nettest

#endif  // OXCFG_TESTS_SUPPORT_NETWORK_SUPPORT_H
