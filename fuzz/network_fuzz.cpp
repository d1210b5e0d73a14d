// Feeds arbitrary bytes as "Config.xml" to the network and NAT gateway
// loaders and the network's reloads, in a private working directory.
#include <unistd.h>

#include <oxconfigmgr/OxNATGateway.h>
#include <oxconfigmgr/OxNetworkCfg.h>

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string>
#include <vector>

#include "fuzz_workdir.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  oxfuzz::enterWorkDir("network");
  const std::string text(reinterpret_cast<const char*>(data), size);
  if (!oxfuzz::putFile("Config.xml", text)) return 0;

  OxConfigMgr::CNetworkCfg network;
  // The reloads read the input as it stands (loadFile writes it back).
  if (network.reloadAddrList()) {
    std::vector<_NIC_INFO_V4> table;
    network.getIPv4List(table);
    if (table.size() > 16) std::abort();
  }
  network.reloadFile();
  if (network.loadFile()) {
    // The table as loaded: its texts must stay inside their fields.
    std::vector<_NIC_INFO_V4> table;
    network.getIPv4List(table);
    if (table.size() > 16) std::abort();
    network.getGatewayInterIP();
    network.getGatewayOuterIP();
    network.resetAddrList();
  }
  OxConfigMgr::CNATGateway nat;
  nat.loadFile();
  return 0;
}
