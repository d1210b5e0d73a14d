#include <atomic>
#include <cstring>

#include "network/network_internal.h"

namespace OxConfigMgr {
namespace netinternal {

namespace {
std::atomic<bool (*)(const char*)> g_refuse{nullptr};
}  // namespace

std::string fieldText(const char* field, size_t size) {
  return std::string(field, strnlen(field, size));
}

void setField(char* field, size_t size, const char* text) {
  std::memset(field, 0, size);
  if (text) std::memcpy(field, text, strnlen(text, size));
}

bool fieldEquals(const char* field, size_t size, const std::string& text) {
  size_t len = strnlen(field, size);
  return len == text.size() && std::memcmp(field, text.data(), len) == 0;
}

uint32_t protocolMaskFromText(const char* text) {
  if (!text) return 0;
  uint32_t mask = 0;
  const char* v5 = std::strstr(text, "lumen5.0");
  if (v5) mask |= PROTOCOL_LUMEN5;
  const char* lumen = std::strstr(text, "lumen");
  if (lumen && lumen != v5) mask |= PROTOCOL_LUMEN;
  if (std::strstr(text, "SDK")) mask |= PROTOCOL_SDK;
  if (std::strstr(text, "QAPI")) mask |= PROTOCOL_QAPI;
  return mask;
}

std::string protocolText(uint32_t mask) {
  std::string text;
  if (mask & PROTOCOL_LUMEN) text += "lumen/";
  if (mask & PROTOCOL_QAPI) text += "QAPI/";
  if (mask & PROTOCOL_SDK) text += "SDK/";
  if (mask & PROTOCOL_LUMEN5) text += "lumen5.0";
  return text;
}

OxBase::CRWLock& addrTableLock() {
  static OxBase::CRWLock* lock = new OxBase::CRWLock;  // outlives static destruction
  return *lock;
}

int modifyText(OxBase::CXmlBase& xml, const char* name, const char* value) {
  bool (*refuse)(const char*) = g_refuse.load();
  if (refuse && refuse(name)) return 0;
  return xml.ModifyData(name, value);
}

void setModifyRefusalForTest(bool (*refuse)(const char* name)) { g_refuse.store(refuse); }

}  // namespace netinternal
}  // namespace OxConfigMgr
