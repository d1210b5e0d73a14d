// The checks an imported archive passes before anything of it is unpacked:
// the archiver's listing and the ZIP end-of-central-directory record.
#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "transfer/archive_listing.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  using namespace OxConfigMgr::transfer;
  const ArchiveLimits limits = defaultArchiveLimits();
  std::vector<ArchiveEntry> entries;
  std::string reason;
  checkArchiveListing(std::string(reinterpret_cast<const char*>(data), size), "configuration", limits, &entries,
                      &reason);
  ZipDirectory directory;
  readZipDirectory(data, size, size + (size % 7), limits, &directory, &reason);
  return 0;
}
