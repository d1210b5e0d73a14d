// oxcfg: uploads to and deletes from the picture storage service, for
// operators who check the service by hand.
//
// oxcfg runs in a process of its own, so the library makes credentials of
// its own there: the storage service answers 403 until it has been given
// that pair. --show-credentials prints it (and only then is it printed) and
// waits for Enter before the request is sent.
#include <oxconfigmgr/OxConfigMgr.h>

#include <cstdio>
#include <fstream>
#include <iostream>
#include <iterator>
#include <memory>
#include <string>
#include <vector>

#include "cli/cli.h"

namespace oxcfg {
namespace {

constexpr std::streamoff kMaxPicture = 64L * 1024 * 1024;

std::string errorMeaning(int error) {
  switch (error) {
    case 403: return "the storage service refused this process's credentials (see --show-credentials)";
    case -1: return "no storage client";
    case -2: return "unusable argument (an empty picture?)";
    case -3: return "the address is not on this gateway's storage service";
    case -4: return "the storage service cannot be reached";
    case -5: return "the storage service did not answer in time";
    case -6: return "the storage service gave a broken answer";
    case -7: return "out of resources";
    default: return error > 0 ? "refused by the storage service" : "failed";
  }
}

// Takes "--show-credentials" and "--path VALUE" out of `args`; false for an
// unknown option or a missing value.
bool takeOptions(std::vector<std::string>& args, bool allowPath, bool* show, std::string* requestPath) {
  std::vector<std::string> rest;
  for (size_t i = 0; i < args.size(); ++i) {
    if (args[i] == "--show-credentials") {
      *show = true;
    } else if (allowPath && args[i] == "--path") {
      if (i + 1 >= args.size()) return false;
      *requestPath = args[++i];
    } else if (args[i].compare(0, 2, "--") == 0) {
      return false;
    } else {
      rest.push_back(args[i]);
    }
  }
  args.swap(rest);
  return true;
}

// Prints this process's pair, then waits for a line on standard input (or
// its end), so that the operator can give the pair to the service before the
// request goes out: the pair exists only as long as this process.
void showCredentials() {
  std::shared_ptr<OxConfigMgr::CStorageConfig> cfg = OX_ConfigMgr_GetStorageConfig();
  if (!cfg) return;
  std::string ak, sk;
  cfg->getStorageAkSk(ak, sk);
  std::printf("access key: %s\nsecret key: %s\n", ak.c_str(), sk.c_str());
  std::fflush(stdout);
  std::fprintf(stderr, "give this pair to the storage service, then press Enter\n");
  std::string line;
  std::getline(std::cin, line);
}

std::shared_ptr<OxConfigMgr::CNetworkCfg> network() {
  auto cfg = OX_ConfigMgr_GetNetworkCfg();
  if (!cfg) std::fprintf(stderr, "oxcfg: the network configuration is not loaded\n");
  return cfg;
}

int upload(std::vector<std::string> args) {
  bool show = false;
  std::string requestPath = "/QAPI/Intelligent/FDLib/pictureUpload";
  if (!takeOptions(args, true, &show, &requestPath) || args.size() != 1) {
    std::fprintf(stderr, "usage: oxcfg storage upload FILE [--path REQUEST_PATH] [--show-credentials]\n");
    return 2;
  }
  std::ifstream in(args[0], std::ios::binary | std::ios::ate);
  if (!in) {
    std::fprintf(stderr, "oxcfg: cannot read %s\n", args[0].c_str());
    return 1;
  }
  if (in.tellg() > kMaxPicture) {
    std::fprintf(stderr, "oxcfg: %s is larger than 64 MiB\n", args[0].c_str());
    return 1;
  }
  in.seekg(0);
  const std::string picture((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
  auto net = network();
  if (!net) return 1;
  if (show) showCredentials();
  int error = 0;
  std::string url;
  if (!net->uploadFacetoPss(error, url, picture, requestPath)) {
    std::fprintf(stderr, "storage upload: failed (error %d: %s)\n", error, errorMeaning(error).c_str());
    return 1;
  }
  if (jsonOutput()) std::printf("{\"url\": %s}\n", jsonString(url).c_str());
  else std::printf("%s\n", url.c_str());
  return 0;
}

int remove(std::vector<std::string> args) {
  bool show = false;
  std::string unused;
  if (!takeOptions(args, false, &show, &unused) || args.size() != 1) {
    std::fprintf(stderr, "usage: oxcfg storage delete URL [--show-credentials]\n");
    return 2;
  }
  auto net = network();
  if (!net) return 1;
  if (show) showCredentials();
  if (!net->deleteFacefromPss(args[0])) {
    std::fprintf(stderr, "storage delete: failed (the address is not on this gateway's storage service, "
                         "the service refused or could not be reached; see the log)\n");
    return 1;
  }
  std::printf("deleted %s\n", args[0].c_str());
  return 0;
}

RegisterCommand g_upload({"storage upload", "FILE [--path REQUEST_PATH] [--show-credentials]",
                          "stores a picture on the storage service and prints its address (pool 1 unless "
                          "--path names another request path); this process has credentials of its own, "
                          "which the service must be given first",
                          upload});
RegisterCommand g_delete({"storage delete", "URL [--show-credentials]",
                          "deletes a picture from the storage service (addresses on that service only)",
                          remove});

}  // namespace
}  // namespace oxcfg
