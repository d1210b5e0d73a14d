// The one way a configuration file takes over the values of the "_Backup"
// twin that a software upgrade leaves beside it.
#ifndef OXCFG_FRAME_BACKUP_MERGE_H
#define OXCFG_FRAME_BACKUP_MERGE_H

#include <functional>
#include <string>

#include "platform/file_util.h"
#include "platform/xml_base.h"

namespace OxConfigMgr {

// "<dir>/<name>_Backup.xml" for "<dir>/<name>.xml".
std::string backupPathFor(const std::string& path);

// Merges the backup twin of `path` into `path`, under the file's
// read-modify-write transaction:
//  - no backup: nothing happens (false);
//  - the backup or the current file does not load: both stay as they are and
//    the backup is tried again at the next start (false);
//  - otherwise both documents are set to their roots and handed to `merge`
//    (current first), and the merged current document is written back
//    atomically with `mode`. The backup is deleted only once that write is
//    durable: until then it may be the only copy of the previous values (the
//    storage key among them), so a failed write keeps it, logs, and returns
//    false.
// "Config.xml" is loaded and stored under the store's file lock, like every
// other access to it. Returns true when the backup was merged and consumed.
bool mergeBackupFile(const std::string& path, OxBase::FileMode mode,
                     const std::function<void(OxBase::CXmlBase& current, OxBase::CXmlBase& backup)>& merge);

}  // namespace OxConfigMgr

#endif  // OXCFG_FRAME_BACKUP_MERGE_H
