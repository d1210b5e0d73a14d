// Running the archiver `7za` of the working directory: always from an
// argument vector, with the password on its standard input (never on a
// command line, where other local users could read it), `-y` so that it never
// waits for an answer, under a wall-time limit and a file-size limit.
#ifndef OXCFG_TRANSFER_ARCHIVE_TOOL_H
#define OXCFG_TRANSFER_ARCHIVE_TOOL_H

#include <string>
#include <vector>

#include "transfer/archive_listing.h"

namespace OxConfigMgr {
namespace transfer {

// The form in which a password reaches the archiver. The archiver's ZIP
// encryption takes only printable ASCII (0x20 to 0x7e), one line of it: such
// a password goes over unchanged, so any ZIP tool opens the archive with it.
// A password with any other byte goes over with '%' and every byte outside
// that range written as "%XX" (upper-case hexadecimal), so that every byte
// string round-trips through export and import; another tool then needs that
// escaped form. The escaped form of a non-ASCII password is also a plain
// password that someone could type: "%C3%A9" and "é" open the same archive.
std::string archiverPassword(const std::string& password);

struct ArchiverRun {
  int exitCode = -1;   // of the archiver (124 after the time-out; -1: not started)
  std::string output;  // its standard output and standard error
};

// Runs `args` (the archiver's path first) in `workDir` with `input` on its
// standard input, bounded by `limits` (time-out, largest file written, no
// core dump). The bounds are applied by the system's `timeout` and
// `prlimit`, which pass the arguments on unchanged and leave standard input
// to the archiver.
ArchiverRun runArchiver(const std::vector<std::string>& args, const std::string& input,
                        const std::string& workDir, const ArchiveLimits& limits);

}  // namespace transfer
}  // namespace OxConfigMgr

#endif  // OXCFG_TRANSFER_ARCHIVE_TOOL_H
