#include <oxconfigmgr/OxNATGateway.h>

#include <cstring>

#include "frame/config_store.h"
#include "platform/osl.h"
#include "platform/xml_base.h"

namespace OxConfigMgr {

namespace {

const char* const kProtocols[] = {"HTTP", "RTSP", "HTTPS"};

void readBound(OxBase::CXmlBase& xml, const char* name, uint16_t& bound) {
  if (xml.FindElem(name)) bound = static_cast<uint16_t>(static_cast<uint32_t>(OSL_Atoi32(xml.GetData())));
}

// The bounds are read by the getters while a reload replaces them: each is
// one relaxed atomic word.
uint16_t loadBound(const uint16_t& bound) { return __atomic_load_n(&bound, __ATOMIC_RELAXED); }
void storeBound(uint16_t& bound, uint16_t value) { __atomic_store_n(&bound, value, __ATOMIC_RELAXED); }

}  // namespace

CNATGateway::CNATGateway() : m_ranges() {}

bool CNATGateway::loadFile() {
  try {
    OxBase::CXmlBase xml;
    if (readConfigFile(xml) != 1) return false;
    if (!xmlWalk(xml, {"Config", "NATGateway", "PortRangeList"})) return false;

    // Parsed into a copy that starts from the values in force (a range the
    // file leaves out keeps them), then published bound by bound.
    PortRange ranges[3];
    for (int i = 0; i < 3; ++i) ranges[i] = {loadBound(m_ranges[i].min), loadBound(m_ranges[i].max)};
    if (xml.IntoElem()) {
      // Deliberately kept across ranges: a range without a known protocol
      // continues the one before it.
      int index = -1;
      for (bool more = xml.FindElem("PortRange"); more; more = xml.FindNextElem("PortRange")) {
        if (!xml.IntoElem()) {
          continue;  // no children: neither a protocol nor bounds
        }
        if (xml.FindElem("Protocol")) {
          const char* text = xml.GetData();
          for (int i = 0; i < 3; ++i) {
            if (std::strcmp(text, kProtocols[i]) == 0) {
              index = i;
              break;
            }
          }
        }
        if (index >= 0) {
          readBound(xml, "min", ranges[index].min);
          readBound(xml, "max", ranges[index].max);
        }
        xml.OutOfElem();
      }
    }
    for (int i = 0; i < 3; ++i) {
      storeBound(m_ranges[i].min, ranges[i].min);
      storeBound(m_ranges[i].max, ranges[i].max);
    }
    return true;
  } catch (...) {
    return false;
  }
}

uint16_t CNATGateway::getMinHTTPPort() const { return loadBound(m_ranges[0].min); }
uint16_t CNATGateway::getMaxHTTPPort() const { return loadBound(m_ranges[0].max); }
uint16_t CNATGateway::getMinRtspPort() const { return loadBound(m_ranges[1].min); }
uint16_t CNATGateway::getMaxRtspPort() const { return loadBound(m_ranges[1].max); }

}  // namespace OxConfigMgr
