// CNetworkCfg: the address table, its refresh from the adapters, protocol
// bindings, outside addresses and the "AddrList" element.
#include <oxconfigmgr/OxNetworkCfg.h>

#include <algorithm>
#include <atomic>
#include <cstring>
#include <functional>
#include <mutex>
#include <shared_mutex>

#include "frame/config_store.h"
#include "frame/config_txn.h"
#include "frame/osl_guard.h"
#include "network/network_internal.h"
#include "platform/osl.h"
#include "platform/oxbase.h"
#include "platform/xlog.h"

namespace OxConfigMgr {

using netinternal::addrTableLock;
using netinternal::fieldEquals;
using netinternal::fieldText;
using netinternal::loadRelaxed;
using netinternal::setField;
using netinternal::storeRelaxed;
using OxBase::CXmlBase;

namespace {

constexpr size_t kMaxEntries = 16;
// Adapters are listed at most this often (OSL_TimeNow units, microseconds:
// two minutes); address queries are frequent.
constexpr OSL_Time kRefreshInterval = 120000000;

std::atomic<OSL_Time> g_lastAdapterRefresh{0};

bool isProtocol(uint32_t p) {
  return p == PROTOCOL_SDK || p == PROTOCOL_LUMEN || p == PROTOCOL_LUMEN5 || p == PROTOCOL_QAPI;
}

bool emptyField(const char* field) { return field[0] == '\0'; }

// Releases an adapter list on every path.
struct AdapterList {
  OSL_ADAPTER_INFO* head = nullptr;
  int release() {
    int rc = OSL_FreeAdapterInfo(head);
    head = nullptr;
    return rc;
  }
  ~AdapterList() {
    if (head) OSL_FreeAdapterInfo(head);
  }
};


// True when the interval since the last refresh has passed; then this
// caller owns the refresh (of several lazy refreshes that start at once,
// one runs).
bool claimRefresh() {
  const OSL_Time now = OSL_TimeNow();
  OSL_Time last = g_lastAdapterRefresh.load();
  if (now - last < kRefreshInterval) return false;
  return g_lastAdapterRefresh.compare_exchange_strong(last, now);
}

// A table of the machine's usable addresses, in text order, byte by byte
// ("192.168.1.10" before "192.168.1.9"). Loopback 127.0.0.1, 0.0.0.0 and
// unparsable texts are left out; the first adapter that carries an address
// names it. False when the adapters cannot be listed (logged).
bool scanAdapters(_NIC_INFO_V4 (&fresh)[kMaxEntries], size_t& count) {
  AdapterList adapters;
  if (OSL_GetAdapterInfo(&adapters.head) != 0) {
    OXLOG(5, "[%s(%d)] [errCode=%d]OSL_GetAdapterInfo failed.", OSL_GetSystemLastError());
    return false;
  }
  count = 0;
  for (OSL_ADAPTER_INFO* a = adapters.head; a && count < kMaxEntries; a = a->next) {
    for (OSL_IPV4_ADDR* ip = a->ipList; ip && count < kMaxEntries; ip = ip->next) {
      const std::string text = fieldText(ip->addr);
      unsigned int parsed = 0;
      if (text == "127.0.0.1" || text == "0.0.0.0" || OX_BASE_ParseIp4(text.c_str(), &parsed) != 0) {
        continue;
      }
      bool taken = false;
      for (size_t i = 0; i < count && !taken; ++i) taken = fieldEquals(fresh[i].ipv4, text);
      if (taken) continue;
      _NIC_INFO_V4& entry = fresh[count];
      setField(entry.ipv4, text.c_str());
      const std::string name = fieldText(a->name);
      setField(entry.description, name.c_str());
      OXLOG(3, "[%s(%d)] [No.=%d,IPv4=%s, desc=%s]GetLocalIP.", static_cast<int>(count), text.c_str(),
            name.c_str());
      ++count;
    }
  }
  std::sort(fresh, fresh + count, [](const _NIC_INFO_V4& x, const _NIC_INFO_V4& y) {
    return std::memcmp(x.ipv4, y.ipv4, sizeof x.ipv4) < 0;
  });
  return true;
}

// Carries the outside addresses and protocols of the `oldCount` entries of
// `old` into the new table: they stay with their address, and those of an
// address that has gone move to entry 0 (where its own outside addresses
// are still empty). Marks in `kept` the new entries that took over an old
// one. True when the table changed beyond what the adapters say (an
// address went, or the count differs). Pure memory work: runs under the
// table's lock.
bool mergeOldTable(const _NIC_INFO_V4* old, size_t oldCount, _NIC_INFO_V4* fresh, size_t count,
                   bool (&kept)[kMaxEntries]) {
  bool changed = count != oldCount;
  for (size_t i = 0; i < oldCount; ++i) {
    const _NIC_INFO_V4& o = old[i];
    if (o.protocolMask == 0 && emptyField(o.externalIP) && emptyField(o.deviceExternal)) continue;
    size_t same = count;
    for (size_t j = 0; j < count && same == count; ++j) {
      if (std::memcmp(fresh[j].ipv4, o.ipv4, sizeof o.ipv4) == 0) same = j;
    }
    if (same < count) {
      _NIC_INFO_V4& e = fresh[same];
      std::memcpy(e.externalIP, o.externalIP, sizeof o.externalIP);
      std::memcpy(e.deviceExternal, o.deviceExternal, sizeof o.deviceExternal);
      e.protocolMask |= o.protocolMask;
      kept[same] = true;
    } else {
      if (emptyField(fresh[0].externalIP)) std::memcpy(fresh[0].externalIP, o.externalIP, sizeof o.externalIP);
      if (emptyField(fresh[0].deviceExternal)) {
        std::memcpy(fresh[0].deviceExternal, o.deviceExternal, sizeof o.deviceExternal);
      }
      fresh[0].protocolMask |= o.protocolMask;
      changed = true;
    }
  }
  return changed;
}

}  // namespace

namespace netinternal {
void resetAdapterRefreshForTest() { g_lastAdapterRefresh.store(0); }
}  // namespace netinternal

// Memory first, then the file. The merge of the old table and the swap run
// under one hold of the table's lock, so a binding or outside address set
// while the adapters were being listed is merged, never overwritten. From
// the merge to the write the file's transaction is held: a reload of the
// file (which takes it) comes wholly before the merge or after the write,
// never between, where it would put the file's older table back.
bool CNetworkCfg::updateLocalIP() {
  try {
    if (!claimRefresh()) return true;
    _NIC_INFO_V4 fresh[kMaxEntries] = {};
    size_t count = 0;
    if (!scanAdapters(fresh, count)) return false;
    if (count == 0) {
      OXLOG(5, "[%s(%d)] [num=%d]GetLocalIP failed.", 0);
      return false;
    }

    ConfigFileTxn txn(getConfigFilePath());
    bool kept[kMaxEntries] = {};
    bool changed;
    {
      std::unique_lock<OxBase::CRWLock> lock(addrTableLock());
      changed = mergeOldTable(addrList, std::min<size_t>(addrCount, kMaxEntries), fresh, count, kept);
      std::memcpy(addrList, fresh, sizeof fresh);
      addrCount = static_cast<uint8_t>(count);
    }
    for (size_t i = 0; i < count; ++i) {
      if (!kept[i]) continue;
      OXLOG(2, "[%s(%d)] [IP=%s,ExternalIP=%s,DeviceExternal=%s,Protocol=%d]update Ip by AdapterInfo.",
            fieldText(fresh[i].ipv4).c_str(), fieldText(fresh[i].externalIP).c_str(),
            fieldText(fresh[i].deviceExternal).c_str(), static_cast<int>(fresh[i].protocolMask));
    }

    if (loadRelaxed(addrListReady) == 0) {
      // First refresh of a table without a configured address: every
      // protocol goes to the lowest address.
      for (DeviceProtocol p : {PROTOCOL_SDK, PROTOCOL_LUMEN, PROTOCOL_LUMEN5, PROTOCOL_QAPI}) {
        setProtocolBindIPv4(p, getGatewayInterIP());
      }
      storeRelaxed(addrListReady, 1);
    } else if (changed) {
      resetAddrList();
    }
    return true;
  } catch (...) {
    return false;
  }
}

int CNetworkCfg::getIPv4ByProtocol(_NIC_INFO_V4& out, DeviceProtocol protocol) {
  if (!isProtocol(protocol)) return 1;
  updateLocalIP();
  try {
    std::shared_lock<OxBase::CRWLock> lock(addrTableLock());
    const size_t count = std::min<size_t>(addrCount, kMaxEntries);
    for (size_t i = 0; i < count; ++i) {
      if (addrList[i].protocolMask & protocol) {
        out = addrList[i];
        return 0;
      }
    }
    out = addrList[0];
  } catch (...) {
  }
  return 0;
}

int CNetworkCfg::getIPv4List(std::vector<_NIC_INFO_V4>& out) {
  try {
    updateLocalIP();
    std::shared_lock<OxBase::CRWLock> lock(addrTableLock());
    out.insert(out.end(), addrList, addrList + std::min<size_t>(addrCount, kMaxEntries));
  } catch (...) {
  }
  return 0;
}

namespace {

// One text field of entry 0, read under the table's lock.
template <size_t N>
std::string entryZeroText(const _NIC_INFO_V4* table, char (_NIC_INFO_V4::*field)[N]) {
  try {
    std::shared_lock<OxBase::CRWLock> lock(addrTableLock());
    return fieldText(table[0].*field);
  } catch (...) {
    return std::string();
  }
}

}  // namespace

std::string CNetworkCfg::getGatewayInterIP() const { return entryZeroText(addrList, &_NIC_INFO_V4::ipv4); }

std::string CNetworkCfg::getGatewayOuterIP() const { return entryZeroText(addrList, &_NIC_INFO_V4::externalIP); }

std::string CNetworkCfg::getDeviceOuterAddr() const {
  return entryZeroText(addrList, &_NIC_INFO_V4::deviceExternal);
}

namespace {

// Binds `protocol` to exactly the entries whose address is `ip`. Runs under
// the table's exclusive lock.
void bindProtocol(_NIC_INFO_V4* table, size_t count, DeviceProtocol protocol, const std::string& ip) {
  for (size_t i = 0; i < count; ++i) {
    if (fieldEquals(table[i].ipv4, ip)) {
      table[i].protocolMask |= protocol;
    } else {
      table[i].protocolMask &= ~static_cast<uint32_t>(protocol);
    }
  }
}

}  // namespace

int CNetworkCfg::setProtocolBindIPv4(DeviceProtocol protocol, std::string ip) {
  return rewriteAddrList([&] { bindProtocol(addrList, std::min<size_t>(addrCount, kMaxEntries), protocol, ip); });
}

int CNetworkCfg::checkProtocolBindIPv4(std::string ip) {
  try {
    std::shared_lock<OxBase::CRWLock> lock(addrTableLock());
    const size_t count = std::min<size_t>(addrCount, kMaxEntries);
    for (size_t i = 0; i < count; ++i) {
      if (fieldEquals(addrList[i].ipv4, ip)) return 1;
    }
  } catch (...) {
  }
  return 0;
}

int CNetworkCfg::resetAddrList() { return rewriteAddrList(nullptr); }

// The change to memory is made inside the file's transaction: a reload of a
// file that another process replaced (which takes the transaction) then
// comes wholly before it or wholly after the write that carries it, never
// between the two, where it would drop the change from both.
// The transaction also serialises the rewrites of this process; no other
// lock is taken before it (a refresh calls in holding it already).
int CNetworkCfg::rewriteAddrList(const std::function<void()>& change) {
  bool read = false;
  try {
    ConfigFileTxn txn(getConfigFilePath());
    _NIC_INFO_V4 table[kMaxEntries];
    size_t count;
    {
      std::unique_lock<OxBase::CRWLock> lock(addrTableLock());
      if (change) change();
      std::memcpy(table, addrList, sizeof table);
      count = std::min<size_t>(addrCount, kMaxEntries);
    }
    CXmlBase xml;
    if (readConfigFile(xml) != 1) return 2;
    read = true;
    if (xml.FindElem("Config") && xml.IntoElem() && xml.FindElem("Network") && xml.IntoElem() &&
        xml.FindElem("AddrList")) {
      xml.RemoveChildren("Addr");
      for (size_t i = 0; i < count; ++i) {
        const _NIC_INFO_V4& e = table[i];
        xml.AddNode("Addr");
        xml.AddNode("V4");
        xml.AddNode("IP", fieldText(e.ipv4).c_str());
        xml.AddNode("ExternalIP", fieldText(e.externalIP).c_str());
        xml.AddNode("DeviceExternal", fieldText(e.deviceExternal).c_str());
        xml.OutOfElem();
        xml.AddNode("Protocol", netinternal::protocolText(e.protocolMask).c_str());
        xml.OutOfElem();
      }
    }
    return writeConfigFile(xml) == 1 ? 0 : 3;
  } catch (...) {
    return read ? 3 : 2;
  }
}

namespace {

// Where setExtIPv4 and setDevExt differ.
struct OutsideField {
  const char* element;
  char (_NIC_INFO_V4::*field)[67];
};

// The body of setExtIPv4 and setDevExt, over the table and count of the
// object; each passes its own mutex.
int setOutsideAddress(_NIC_INFO_V4* table, const uint8_t& count, OSL_Mutex* mutex,
                      const OutsideField& which, const std::string& ip, const std::string& outside) {
  bool read = false;
  try {
    {
      std::shared_lock<OxBase::CRWLock> lock(addrTableLock());
      const size_t n = std::min<size_t>(count, kMaxEntries);
      for (size_t i = 0; i < n; ++i) {
        if (fieldEquals(table[i].ipv4, ip) && fieldEquals(table[i].*which.field, outside)) return 0;
      }
    }

    OSL_Guard guard(mutex);
    ConfigFileTxn txn(getConfigFilePath());
    CXmlBase xml;
    if (readConfigFile(xml) != 1) return 2;
    read = true;
    if (xmlWalk(xml, {"Config", "Network", "AddrList"}) && xml.IntoElem()) {
      for (bool more = xml.FindElem("Addr"); more; more = xml.FindNextElem("Addr")) {
        if (!xml.IntoElem()) continue;
        bool matched = false;
        if (xml.FindElem("V4") && xml.IntoElem()) {
          if (xml.FindElem("IP") && ip == xml.GetData()) {
            matched = true;
            if (xml.FindElem(which.element)) xml.ModifyData(which.element, outside.c_str());
          }
          xml.OutOfElem();
        }
        xml.OutOfElem();
        if (matched) break;
      }
    }
    if (writeConfigFile(xml) != 1) return 3;

    std::unique_lock<OxBase::CRWLock> lock(addrTableLock());
    const size_t n = std::min<size_t>(count, kMaxEntries);
    for (size_t i = 0; i < n; ++i) {
      if (fieldEquals(table[i].ipv4, ip)) {
        setField(table[i].*which.field, outside.c_str());
        break;
      }
    }
    return 0;
  } catch (...) {
    return read ? 3 : 2;
  }
}

}  // namespace

int CNetworkCfg::setExtIPv4(std::string ip, std::string externalIP) {
  static OSL_Mutex s_mutex;
  return setOutsideAddress(addrList, addrCount, &s_mutex,
                           {"ExternalIP", &_NIC_INFO_V4::externalIP}, ip, externalIP);
}

int CNetworkCfg::setDevExt(std::string ip, std::string deviceExternal) {
  static OSL_Mutex s_mutex;
  return setOutsideAddress(addrList, addrCount, &s_mutex,
                           {"DeviceExternal", &_NIC_INFO_V4::deviceExternal}, ip, deviceExternal);
}

int CNetworkCfg::getAdapterInfo(std::vector<_NIC_INFO_V4>& out) {
  try {
    AdapterList adapters;
    if (OSL_GetAdapterInfo(&adapters.head) != 0) {
      OXLOG(5, "[%s(%d)] [errCode=%d]OSL_GetAdapterInfo failed.", OSL_GetSystemLastError());
      return -1;
    }
    _NIC_INFO_V4 scratch[kMaxEntries] = {};
    size_t count = 0;
    for (OSL_ADAPTER_INFO* a = adapters.head; a && count < kMaxEntries; a = a->next) {
      for (OSL_IPV4_ADDR* ip = a->ipList; ip && count < kMaxEntries; ip = ip->next) {
        const std::string text = fieldText(ip->addr);
        if (text == "127.0.0.1" || text == "0.0.0.0") continue;
        setField(scratch[count].ipv4, text.c_str());
        setField(scratch[count].description, fieldText(a->description).c_str());
        OXLOG(3, "[%s(%d)] [No.=%d,IPv4=%s]GetLocalIP.", static_cast<int>(count), text.c_str());
        ++count;
      }
    }
    for (const _NIC_INFO_V4& e : scratch) {
      if (e.ipv4[0] != '\0') out.push_back(e);
    }
    return adapters.release();
  } catch (...) {
    return -1;
  }
}

}  // namespace OxConfigMgr
