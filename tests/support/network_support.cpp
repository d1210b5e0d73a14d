#include "support/network_support.h"

#include <cstddef>

#include "platform/xml_base.h"

namespace nettest {

namespace {
const char* kNeighbour =
    "<BasicInfo><Name>gateway</Name><SoftwareVersion>1.8.0.0</SoftwareVersion></BasicInfo>";
}  // namespace

std::string configWith(const std::string& network) {
  return std::string("<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<Config>") + kNeighbour + network +
         "<NATGateway><PortRangeList><PortRange><Protocol>HTTP</Protocol><min>1</min><max>2</max>"
         "</PortRange></PortRangeList></NATGateway></Config>\n";
}

std::string factoryNetwork() {
  const std::string text = oxtest::readFile(std::string(OXCFG_FACTORY_DIR) + "/Config.xml");
  size_t begin = text.find("<Network>");
  size_t end = text.find("</Network>");
  if (begin == std::string::npos || end == std::string::npos) return "";
  return text.substr(begin, end + 10 - begin);
}

FileId fileId(const std::string& path) {
  FileId id;
  struct stat st;
  if (::stat(path.c_str(), &st) == 0) id.inode = st.st_ino;
  id.content = oxtest::readFile(path);
  return id;
}

std::string elementText(const std::string& file, const std::vector<std::string>& path) {
  OxBase::CXmlBase xml;
  if (xml.LoadFile(file) != 1 || !xml.SetRoot()) return "";
  for (const auto& name : path) {
    if (!xml.IntoElem() || !xml.FindElem(name.c_str())) return "";
  }
  return xml.GetData();
}

void NetworkTest::SetUp() {
  oxtest::WorkDirTest::SetUp();
  OxConfigMgr::netinternal::resetAdapterRefreshForTest();
  OxConfigMgr::netinternal::setModifyRefusalForTest(nullptr);
  OxBase::Env::Install(&env_);
}

void NetworkTest::TearDown() {
  OxConfigMgr::netinternal::setModifyRefusalForTest(nullptr);
  oxtest::WorkDirTest::TearDown();  // restores the default Env
}

}  // namespace nettest
