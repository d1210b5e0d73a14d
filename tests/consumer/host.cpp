// A tiny host of the installed library, built once with find_package and
// once with pkg-config: it needs the installed headers, the link and the
// exported symbols of the entry points, of a class it constructs itself and
// of a setter. Usage: host DIR (a directory laid out by `oxcfg init`).
#include <oxconfigmgr/OxConfigMgr.h>
#include <unistd.h>

#include <cstdio>

int main(int argc, char** argv) {
  if (argc != 2 || chdir(argv[1]) != 0) {
    std::fprintf(stderr, "usage: host DIR\n");
    return 2;
  }
  if (OX_ConfigMgr_Start() != 1) {
    std::fprintf(stderr, "host: start failed\n");
    return 1;
  }
  auto basic = OX_ConfigMgr_GetBasicCfg();
  auto net = OX_ConfigMgr_GetNetworkCfg();
  if (!basic || !net) {
    std::fprintf(stderr, "host: no handles after start\n");
    return 1;
  }
  const unsigned short port = net->getHttpPort() == 8080 ? 8081 : 8080;
  if (net->setHttpPort(port) != 0 || net->getHttpPort() != port) {
    std::fprintf(stderr, "host: setHttpPort(%u) failed\n", port);
    return 1;
  }
  OxConfigMgr::CARCCfg arc;  // hosts construct this one themselves
  if (!arc.loadFile()) {
    std::fprintf(stderr, "host: ARCConfig.xml did not load\n");
    return 1;
  }
  std::printf("%s %s: HTTP port %u\n", basic->getProductName(), basic->getVersion(), port);
  return 0;
}
