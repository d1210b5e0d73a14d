// NAT gateway port ranges: the "NATGateway" section of "Config.xml".
//
// CNATGateway holds the port ranges the gateway may use on a NAT router for
// its HTTP, RTSP and HTTPS mappings. It only reads: the instance manager
// calls loadFile() once at start (live reload calls it again when another
// writer replaced the file); the getters answer from memory, take no lock and
// never throw. Nothing writes the section.
#ifndef OXCONFIGMGR_OXNATGATEWAY_H
#define OXCONFIGMGR_OXNATGATEWAY_H

#include <oxconfigmgr/OxExport.h>

#include <cstdint>

namespace OxConfigMgr {

// The NAT gateway port ranges, read once at start (see the top of this
// file).
class OXCFG_API CNATGateway {
 public:
  CNATGateway();

  // Reads every "Config/NATGateway/PortRangeList/PortRange". Each range
  // belongs to the protocol its "Protocol" names ("HTTP", "RTSP", "HTTPS",
  // exact); a range with a missing or unknown "Protocol" belongs to the
  // protocol of the range before it (ignored when there is none). False when
  // "Config.xml" cannot be read or "Config", "NATGateway" or "PortRangeList"
  // is missing (memory then untouched). Memory only: it may run again, to
  // take a file that another writer replaced; getters see each bound either
  // old or new. Not for concurrent use with itself.
  bool loadFile();

  // Bounds of the HTTP and RTSP ranges; 0 when not loaded.
  uint16_t getMinHTTPPort() const;
  uint16_t getMaxHTTPPort() const;
  uint16_t getMinRtspPort() const;
  uint16_t getMaxRtspPort() const;

 private:
  struct PortRange {
    uint16_t min;
    uint16_t max;
  };
  // Indexed by protocol: 0 HTTP, 1 RTSP, 2 HTTPS; the rest unused.
  PortRange m_ranges[16];
};

}  // namespace OxConfigMgr

#endif  // OXCONFIGMGR_OXNATGATEWAY_H
