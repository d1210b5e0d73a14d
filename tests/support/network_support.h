// Fixtures of the network tests: a "Config.xml" built around a chosen
// "Network" section, an environment with chosen adapters and a settable
// clock, and file identity checks.
#ifndef OXCFG_TESTS_SUPPORT_NETWORK_SUPPORT_H
#define OXCFG_TESTS_SUPPORT_NETWORK_SUPPORT_H

#include <sys/stat.h>

#include <oxconfigmgr/OxNetworkCfg.h>

#include <atomic>
#include <mutex>
#include <string>
#include <vector>

#include "network/network_internal.h"
#include "support/test_support.h"

namespace nettest {

// Adapters and clock chosen by the test; everything else is real. Counts
// renames onto "Config.xml" (each is one write of the file).
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
  int configWrites() const { return configWrites_; }

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
  int Rename(const std::string& from, const std::string& to) override {
    int rc = EnvWrapper::Rename(from, to);
    if (rc == 0 && to.size() >= 10 && to.compare(to.size() - 10, 10, "Config.xml") == 0) ++configWrites_;
    return rc;
  }

 private:
  std::mutex mutex_;
  std::vector<OxBase::AdapterAddress> adapters_;
  std::atomic<int> adapterErrno_{0};
  std::atomic<int64_t> now_{1000000000000};  // far from 0: the first refresh runs
  std::atomic<int> configWrites_{0};
};

inline OxBase::AdapterAddress adapter(const std::string& name, std::vector<std::string> ips) {
  return OxBase::AdapterAddress{name, name + " description", std::move(ips)};
}

// A complete "Config.xml" whose "Network" section is `network` (the whole
// element, or "" for none), with a neighbouring section that must never
// change.
std::string configWith(const std::string& network);
// The factory "Network" section.
std::string factoryNetwork();

// Identity of a file: a rewrite (atomic rename) gives a new inode.
struct FileId {
  ino_t inode = 0;
  std::string content;
  bool operator==(const FileId& o) const { return inode == o.inode && content == o.content; }
};
FileId fileId(const std::string& path);

// Text of the element at `path` (from the root's children) in a file; ""
// when missing.
std::string elementText(const std::string& file, const std::vector<std::string>& path);

// A test in a fresh directory with the adapter refresh forgotten and the
// environment restored afterwards.
class NetworkTest : public oxtest::WorkDirTest {
 protected:
  void SetUp() override;
  void TearDown() override;
  void writeConfig(const std::string& network) { oxtest::writeFile(path("Config.xml"), configWith(network)); }
  std::string config() const { return oxtest::readFile(path("Config.xml")); }

  AdapterEnv env_;
};

// Texts of a table entry.
inline std::string ip(const _NIC_INFO_V4& e) { return OxConfigMgr::netinternal::fieldText(e.ipv4); }
inline std::string ext(const _NIC_INFO_V4& e) { return OxConfigMgr::netinternal::fieldText(e.externalIP); }
inline std::string dev(const _NIC_INFO_V4& e) {
  return OxConfigMgr::netinternal::fieldText(e.deviceExternal);
}
inline std::string desc(const _NIC_INFO_V4& e) {
  return OxConfigMgr::netinternal::fieldText(e.description);
}

}  // namespace nettest

#endif  // OXCFG_TESTS_SUPPORT_NETWORK_SUPPORT_H
