// What an archive may hold before anything of it is unpacked: the checks on
// the technical listing of `7za l -slt` and on the ZIP end-of-central-
// directory record. Pure functions over bytes (fuzzed).
#ifndef OXCFG_TRANSFER_ARCHIVE_LISTING_H
#define OXCFG_TRANSFER_ARCHIVE_LISTING_H

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace OxConfigMgr {
namespace transfer {

// Bounds on an imported archive and on every run of the archiver.
struct ArchiveLimits {
  uint64_t maxArchiveBytes;    // the archive file itself
  size_t maxEntries;           // entries, the staging folder's own entry included
  uint64_t maxEntryBytes;      // unpacked size of one entry; also the largest file
                               // the archiver may write (export archive included)
  uint64_t maxTotalBytes;      // unpacked size of all entries together
  uint64_t maxDirectoryBytes;  // the archive's central directory (bounds the listing)
  int timeoutSeconds;          // wall time of one archiver run before it is killed
};

// 64 MiB archive, 64 entries of at most 64 MiB and 128 MiB in all, a 1 MiB
// directory, 120 s per run: a gateway's configuration is a few hundred KiB.
ArchiveLimits defaultArchiveLimits();
// The limits in force for this process (the defaults unless replaced).
ArchiveLimits currentArchiveLimits();
// Replaces the limits in force (tests shrink them); not for concurrent use
// with a running import or export.
void setArchiveLimits(const ArchiveLimits& limits);

struct ArchiveEntry {
  std::string path;
  bool folder = false;
  uint64_t size = 0;
};

// Checks the output of `7za l -slt` for an archive that is to be unpacked
// into the folder `staging` (a single path component) of the current
// directory. Accepted: the folder itself and regular files directly inside
// it, each named once, with a relative path free of "..", ".", empty
// components, backslashes and control characters, no link or special file,
// within `limits` in number and declared size. Everything after the
// "----------" line must be "Key = Value" lines in blocks separated by blank
// lines, each block with one "Path". On refusal returns false and says why in
// `reason`; `entries` receives what was accepted.
bool checkArchiveListing(const std::string& listing, const std::string& staging,
                         const ArchiveLimits& limits, std::vector<ArchiveEntry>* entries,
                         std::string* reason);

struct ZipDirectory {
  uint64_t entries = 0;         // total entries the record announces
  uint64_t directoryBytes = 0;  // size of the central directory
};

// Finds the end-of-central-directory record of a ZIP file in `tail`, the last
// `len` bytes of a file of `fileSize` bytes (the record and its comment lie
// in the last 65,557 bytes). False for anything that is not a single-disk
// ZIP within `limits` (no record, ZIP64 markers, a directory that does not
// fit before the record, too many entries, too large a directory).
bool readZipDirectory(const unsigned char* tail, size_t len, uint64_t fileSize,
                      const ArchiveLimits& limits, ZipDirectory* out, std::string* reason);

// How many bytes at the end of a file readZipDirectory needs.
constexpr size_t kZipTailBytes = 22 + 65535;

}  // namespace transfer
}  // namespace OxConfigMgr

#endif  // OXCFG_TRANSFER_ARCHIVE_LISTING_H
