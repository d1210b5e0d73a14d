// Feeds arbitrary bytes to the readers of caller-supplied storage texts: the
// address check of deletes (which must never accept an address off the
// store, nor one whose path differs from what it hands on) and the pool
// choice of uploads. Sends nothing.
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <string>

#include "network/storage_config.h"
#include "platform/lss_client.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  const std::string text(reinterpret_cast<const char*>(data), size);
  const std::string origin = "http://127.0.0.2:6011";
  std::string path;
  if (OxBase::LssObjectPath(origin, text.c_str(), &path)) {
    // Accepted: on the store, in the bucket, in the one signed spelling,
    // free of anything a request line or header could be split with.
    if (text.compare(0, origin.size() + 5, origin + "/pss/") != 0) std::abort();
    if (path.compare(0, 5, "/pss/") != 0) std::abort();
    for (unsigned char c : path) {
      if (c <= 0x20 || c >= 0x7F || c == '?' || c == '#') std::abort();
    }
    std::string again;
    if (!OxBase::LssObjectPath(origin, (origin + path).c_str(), &again) || again != path) std::abort();
  }
  OxConfigMgr::cmpURL(text, "/QAPI/Intelligent/FDLib/pictureUpload");
  return 0;
}
