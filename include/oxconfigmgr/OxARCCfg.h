// Links to alarm receiving centres: "ARCConfig.xml".
//
// The host constructs a CARCCfg itself (the instance manager never creates
// one), calls loadFile(), reads the whole record with getARCParam and
// replaces it with setARCParam. The record is a plain structure with a fixed
// layout, so that hosts can keep it in shared memory or send it over a socket
// and see the same bytes: field order, array widths and 32-bit integers are
// part of the interface (pinned below). Texts are NUL-terminated; a text read
// from the file is cut to the width of its field.
//
// No method lets an exception escape. The object has no lock: callers
// serialise loadFile, setARCParam and getARCParam. Every write of the file is
// an atomic replacement, serialised with every other writer of the file in
// this and other processes.
#ifndef OXCONFIGMGR_OXARCCFG_H
#define OXCONFIGMGR_OXARCCFG_H

#include <oxconfigmgr/OxExport.h>

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <type_traits>

namespace OxConfigMgr {

// Sur-Gard receiver ("SGConfig").
struct tagSGParam {
  char portType[17];        // "TCP/IP" or a serial port type
  char outputType[9];       // "CID", "CID-10" or "SIA" (the file holds 0, 1, 2)
  int32_t serverMode;       // 0 or 1
  int32_t sgPort;
  int32_t heartbeat;        // seconds: 10 or 30 (the file holds 0, 1)
  char platformIP[17];
  char receiverType[33];    // "MLR2000"
  int32_t heartbeatEnable;  // 0 or 1
  int32_t serialNumber;
  int32_t baudRate;
  int32_t dataBits;
  char parityType[9];
  char stopBits[9];
  char rr[3];               // receiver number
  char lll[4];              // line number
  char spare[11];
  tagSGParam() {
    std::memset(static_cast<void*>(this), 0, sizeof *this);
    std::memcpy(platformIP, "127.0.0.1", 10);
  }
};

// A685 receiver on a serial line ("A685Config").
struct tagA685Param {
  int32_t serialNumber;
  int32_t baudRate;
  int32_t dataBits;
  char parityType[9];
  char stopBits[9];
  char r[3];  // receiver number
  char l[4];  // line number
  char spare[11];
  tagA685Param() { std::memset(static_cast<void*>(this), 0, sizeof *this); }
};

// Manitou receiver over IP ("ManitouConfig").
struct tagFEPParam {
  char ip[17];
  int32_t port;
  char line[4];
  int32_t linkMode;
  int32_t heartbeatInterval;   // seconds; never written back to the file
  int32_t testSignalInterval;  // seconds
  char signalID[33];
  char eventType[33];
  char eventID[33];
  int32_t spare;
  tagFEPParam() {
    std::memset(static_cast<void*>(this), 0, sizeof *this);
    std::memcpy(ip, "127.0.0.1", 10);
  }
};

// SBN receiver over IP ("SBNConfig").
struct tagSBNParam {
  char ip[17];
  int32_t port;
  int32_t spare;
  tagSBNParam() {
    std::memset(static_cast<void*>(this), 0, sizeof *this);
    std::memcpy(ip, "127.0.0.1", 10);
  }
};

// The whole configuration, copied in and out whole. The constructors zero
// every byte, padding included, before setting the defaults, so two records
// with the same values have the same bytes.
struct tagArcCnf {
  char type[17];   // receiver protocol name, "Protocol/Type"
  int32_t enable;  // forwarding enabled, 0 or 1
  tagSGParam sg;
  tagA685Param a685;
  tagFEPParam manitou;
  tagSBNParam sbn;
  tagArcCnf() {
    std::memset(static_cast<void*>(this), 0, sizeof *this);
    std::memcpy(sg.platformIP, "127.0.0.1", 10);
    std::memcpy(manitou.ip, "127.0.0.1", 10);
    std::memcpy(sbn.ip, "127.0.0.1", 10);
  }
};

static_assert(std::is_trivially_copyable<tagArcCnf>::value, "tagArcCnf is copied as bytes");
static_assert(sizeof(tagSGParam) == 144, "tagSGParam layout");
static_assert(sizeof(tagA685Param) == 48, "tagA685Param layout");
static_assert(sizeof(tagFEPParam) == 144, "tagFEPParam layout");
static_assert(sizeof(tagSBNParam) == 28, "tagSBNParam layout");
static_assert(sizeof(tagArcCnf) == 388, "tagArcCnf layout");
static_assert(offsetof(tagArcCnf, enable) == 20, "tagArcCnf layout");
static_assert(offsetof(tagArcCnf, sg) == 24, "tagArcCnf layout");
static_assert(offsetof(tagArcCnf, a685) == 168, "tagArcCnf layout");
static_assert(offsetof(tagArcCnf, manitou) == 216, "tagArcCnf layout");
static_assert(offsetof(tagArcCnf, sbn) == 360, "tagArcCnf layout");

// The settings of the links to alarm receiving centres, read from and
// written to "ARCConfig.xml" (see the top of this file).
class OXCFG_API CARCCfg {
 public:
  // The record's defaults: everything empty or 0, addresses "127.0.0.1".
  CARCCfg();
  ~CARCCfg();

  // Carries an upgrade's "ARCConfig_Backup.xml" over first
  // (copyBackupConfig), then reads "ARCConfig.xml" into the record. Absent
  // elements keep their value or take their default; switches are on only
  // for the text "1"; serial numbers that do not parse read as -1. False when
  // the file cannot be read, a heartbeat or output-type code is unknown, or
  // a serial parameter or one of the A685, Manitou and SBN blocks is missing:
  // the fields read before stay changed. A file whose root is not "Config"
  // loads nothing and succeeds. In server mode a changed Sur-Gard port that
  // cannot be listened on is logged, set to 0 and written back at once.
  bool loadFile();

  // Copies the record into `out`; returns 0.
  int getARCParam(tagArcCnf& out) const;
  // Replaces the record with `in` (texts kept NUL-terminated), then writes
  // it (setFile). 0, or 9 when the file could not be written; the record
  // keeps the new values even then.
  int setARCParam(const tagArcCnf& in);

  // Rewrites the text of every element of the existing file from the record
  // (the Manitou heartbeat interval excepted); never creates the file or an
  // element. A missing block is skipped; a missing element inside a block,
  // a heartbeat other than 10 or 30 s or an unknown output type fails with
  // the file unchanged. True when the new file is in place.
  bool setFile();

  // Merges "ARCConfig_Backup.xml" into "ARCConfig.xml" and moves the old
  // layout's "SGConfig/Enable" to "Protocol/Enable". The backup is deleted
  // only once the merged file is durably written.
  void copyBackupConfig();

 private:
  tagArcCnf m_cfg;
};

}  // namespace OxConfigMgr

#endif  // OXCONFIGMGR_OXARCCFG_H
