// Feeds arbitrary bytes to the XML parser and walks the result with the
// merge in both directions against a real configuration document.
#include <cstddef>
#include <cstdint>
#include <string>

#include "frame/config_store.h"
#include "platform/xml_base.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  static const char* kConfig =
      "<Config><BasicInfo><Name>n</Name><SoftwareVersion>1.8.0.0</SoftwareVersion></BasicInfo>"
      "<Network><AddrList><Addr><V4><IP>1.2.3.4</IP></V4></Addr><Addr/></AddrList>"
      "<HTTP><Port>80</Port></HTTP></Network></Config>";
  std::string text(reinterpret_cast<const char*>(data), size);
  OxBase::CXmlBase input;
  if (input.Parse(text) != 1) return 0;

  OxBase::CXmlBase config;
  config.Parse(kConfig);
  config.SetRoot();
  input.SetRoot();
  OxConfigMgr::copyXMLRecursive(config, input, "SoftwareVersion");

  OxBase::CXmlBase again;
  again.Parse(text);
  again.SetRoot();
  config.SetRoot();
  OxConfigMgr::copyXMLRecursive(again, config, nullptr);
  again.SetRoot();
  input.SetRoot();
  OxConfigMgr::copyXMLRecursive(again, input, nullptr);

  // Walk every element once through the cursor.
  input.SetRoot();
  int budget = 100000;
  while (budget-- > 0) {
    if (input.IntoElem()) continue;
    while (!input.NextSibElem()) {
      if (!input.OutOfElem()) return 0;
    }
  }
  return 0;
}
