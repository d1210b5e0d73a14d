// Conversion of the gateway's event codes into the codes of alarm receiving
// centres: "ConvertCodeConfig.xml".
//
// Two tables map a gateway event code (the "NyxCode") to a row: the Sur-Gard
// table gives a Contact ID and an SIA code, the poll-event table a Contact ID
// code with an enable switch. Both are ordered by byte-wise comparison of the
// code, and every listing and every written section follows that order.
//
// The host constructs a CConvertCodeCfg itself (the instance manager never
// creates one) and calls loadFile(). No method lets an exception escape. The
// object has no lock: the host serialises table updates against conversions
// and listings. Every write of the file is an atomic replacement, serialised
// with every other writer of the file in this and other processes.
#ifndef OXCONFIGMGR_OXCONVERTCODECFG_H
#define OXCONFIGMGR_OXCONVERTCODECFG_H

#include <oxconfigmgr/OxExport.h>

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <map>
#include <string>
#include <vector>

namespace OxConfigMgr {

// What convertCode is asked for.
enum EventFormat : int {
  EVENT_FORMAT_CID = 1,       // Contact ID code from the Sur-Gard table
  EVENT_FORMAT_SIA = 2,       // SIA code from the Sur-Gard table
  EVENT_FORMAT_POLL_CID = 3,  // Contact ID code from the poll-event table, if enabled
};

// Which table.
enum ProtocolType : int {
  PROTOCOL_TYPE_SG = 1,    // Sur-Gard table, section "NyxCodeToSGConfig"
  PROTOCOL_TYPE_POLL = 2,  // poll-event table, section "PollEventToCIDConfig"
};

// One row's value. Texts are NUL-terminated and cut to their width.
struct tagConvertSGInfo {
  int32_t enabled;        // poll-event table only: the code is forwarded
  char cid[5];            // Contact ID event code
  char sia[3];            // SIA event code (Sur-Gard table only)
  char eventDesc[65];     // description
  char eventDescCN[65];   // description in Chinese
  // Zeroes every byte, padding included.
  tagConvertSGInfo() { std::memset(static_cast<void*>(this), 0, sizeof *this); }
};

// One row of a listing.
struct tagEventCode {
  char code[33];  // the gateway event code, cut to 32 characters
  tagConvertSGInfo info;
  tagEventCode() { std::memset(static_cast<void*>(this), 0, sizeof *this); }
};

// A listing request.
struct tagEventCodeQueryReq {
  int32_t position;    // index of the first row wanted, from 0
  int32_t maxResults;  // rows wanted
  int32_t isPollEvent; // 0 lists the Sur-Gard table, otherwise the poll-event table
  tagEventCodeQueryReq() : position(0), maxResults(0), isPollEvent(0) {}
};

static_assert(sizeof(tagConvertSGInfo) == 144, "tagConvertSGInfo layout");
static_assert(sizeof(tagEventCode) == 180, "tagEventCode layout");
static_assert(offsetof(tagEventCode, info) == 36, "tagEventCode layout");
static_assert(sizeof(tagEventCodeQueryReq) == 12, "tagEventCodeQueryReq layout");

// The event code tables of "ConvertCodeConfig.xml": listing, conversion
// and changes of rows (see the top of this file).
class OXCFG_API CConvertCodeCfg {
 public:
  // Both tables empty.
  CConvertCodeCfg();
  ~CConvertCodeCfg();

  // Carries an upgrade's "ConvertCodeConfig_Backup.xml" over first
  // (copyBackupConfig), then merges the rows of both sections into the
  // tables: a row of the file replaces the row of the same code (a later
  // duplicate in the file wins), rows absent from the file stay. A poll row
  // is enabled only by the text "true". False when the file cannot be read;
  // true, with the tables unchanged, when its root is foreign.
  bool loadFile();

  // Rewrites one section ("CodeList" replaced) from its table, in key order.
  // False when the file cannot be read, lacks the root or the section, the
  // type is unknown, or the new file could not be put in place.
  bool setFile(ProtocolType type);

  // 1 with `outputCode` set, 0 otherwise:
  //  - EVENT_FORMAT_CID: the row's Contact ID, or the input when the row has
  //    none; for an unknown code the input with a leading '1' turned into
  //    "E" and a leading '3' into "R" (an empty input fails);
  //  - EVENT_FORMAT_SIA: the row's SIA code, else the input itself;
  //  - EVENT_FORMAT_POLL_CID: the poll row's Contact ID when the row exists,
  //    has one and is enabled; otherwise 0 (an unknown code is logged);
  //  - any other format: 0.
  int convertCode(EventFormat format, const std::string& inputCode, std::string& outputCode);

  // Assigns the selected table to `out` (any other type leaves it as it
  // was); returns 0.
  int getSGEventCodeMap(ProtocolType type, std::map<std::string, tagConvertSGInfo>& out);

  // One page of a table in key order: appends the table to `list`, sets
  // `total` to the size of `list`, then keeps the `req->maxResults` rows from
  // `req->position` on and sets `count` to what is left (0, with `list`
  // cleared, when the position is at or beyond the total). Returns 0, or 1
  // (nothing touched) for a null request, a negative position or a
  // non-positive maxResults.
  int getSGEventCodeList(std::vector<tagEventCode>& list, int& count, int& total, tagEventCodeQueryReq* req);

  // Replaces the selected table with `table` (an unknown type replaces
  // nothing) and rewrites its section. 0, or 9 when the section could not be
  // written; the table keeps the new rows even then.
  int updateSGEventCode(ProtocolType type, const std::map<std::string, tagConvertSGInfo>& table);

  // Merges "ConvertCodeConfig_Backup.xml" into the new file: rows of the new
  // file take the user's values, the user's other rows are appended, and
  // backups of older releases are first brought to the current layout. The
  // backup is deleted only once the merged file is durably written.
  void copyBackupConfig();

 private:
  std::map<std::string, tagConvertSGInfo> sgCodeMap;
  std::map<std::string, tagConvertSGInfo> pollCodeMap;
};

}  // namespace OxConfigMgr

#endif  // OXCONFIGMGR_OXCONVERTCODECFG_H
