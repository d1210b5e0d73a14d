// Serialisation of read-modify-write cycles on a configuration file.
#ifndef OXCFG_FRAME_CONFIG_TXN_H
#define OXCFG_FRAME_CONFIG_TXN_H

#include <string>

namespace OxConfigMgr {

// Holds, for its lifetime, the exclusive right to read-modify-write one
// configuration file, against every other holder in this process (a mutex
// per file) and in other processes (an advisory flock on a separate, stable
// lock file "<dir>/.<name>.lock"; a lock on the data file itself would be lost
// when the atomic rename replaces its inode). Take it before reading the file
// and keep it until the write (rename and directory fsync) is done, so no
// writer can read content that another is about to replace: two setters
// changing different values both persist.
//
// Re-entrant on the same thread (a setter may call another setter of the
// same file). Plain readers need no lock: files are only ever replaced whole.
// If the lock file cannot be created (for instance in a read-only directory)
// only the in-process serialisation applies; the write fails anyway.
class ConfigFileTxn {
 public:
  explicit ConfigFileTxn(const std::string& path);
  ~ConfigFileTxn();
  ConfigFileTxn(const ConfigFileTxn&) = delete;
  ConfigFileTxn& operator=(const ConfigFileTxn&) = delete;

 struct Entry;  // per-file state; public only for the process-wide table

 private:
  Entry* entry_;
};

// The lock file used for `path`.
std::string configLockPath(const std::string& path);

}  // namespace OxConfigMgr

#endif  // OXCFG_FRAME_CONFIG_TXN_H
