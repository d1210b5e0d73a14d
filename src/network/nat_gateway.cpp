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

}  // namespace

CNATGateway::CNATGateway() : m_ranges() {}

bool CNATGateway::loadFile() {
  try {
    OxBase::CXmlBase xml;
    if (readConfigFile(xml) != 1) return false;
    if (!xmlWalk(xml, {"Config", "NATGateway", "PortRangeList"})) return false;
    if (!xml.IntoElem()) return true;  // an empty list

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
        readBound(xml, "min", m_ranges[index].min);
        readBound(xml, "max", m_ranges[index].max);
      }
      xml.OutOfElem();
    }
    return true;
  } catch (...) {
    return false;
  }
}

uint16_t CNATGateway::getMinHTTPPort() const { return m_ranges[0].min; }
uint16_t CNATGateway::getMaxHTTPPort() const { return m_ranges[0].max; }
uint16_t CNATGateway::getMinRtspPort() const { return m_ranges[1].min; }
uint16_t CNATGateway::getMaxRtspPort() const { return m_ranges[1].max; }

}  // namespace OxConfigMgr
