// Pieces shared by the files of CNetworkCfg: bounded text fields, the
// protocol texts of "AddrList", relaxed access to members that getters read
// without a lock, the lock of the address table, and test seams.
#ifndef OXCFG_NETWORK_NETWORK_INTERNAL_H
#define OXCFG_NETWORK_NETWORK_INTERNAL_H

#include <oxconfigmgr/OxNetworkCfg.h>

#include <cstddef>
#include <cstdint>
#include <string>

#include "platform/rwlock.h"
#include "platform/xml_base.h"

namespace OxConfigMgr {
namespace netinternal {

// Text of a NUL-padded field that may fill its whole size without a
// terminator.
std::string fieldText(const char* field, size_t size);
template <size_t N>
std::string fieldText(const char (&field)[N]) {
  return fieldText(field, N);
}
// Clears the field and copies at most its size of `text` (no terminator
// when the text fills it). The address table needs exactly that: a text of
// the field's full size is kept whole, so this is the one copy here that
// does not go through OSL_Strncpy (which always keeps a terminator).
void setField(char* field, size_t size, const char* text);
template <size_t N>
void setField(char (&field)[N], const char* text) {
  setField(field, N, text);
}
// True when the field holds exactly `text`.
bool fieldEquals(const char* field, size_t size, const std::string& text);
template <size_t N>
bool fieldEquals(const char (&field)[N], const std::string& text) {
  return fieldEquals(field, N, text);
}

// Protocol bits named in a "Protocol" text, by substring search: "lumen5.0"
// gives 4; "lumen" gives 2 unless its first occurrence is the start of the
// first "lumen5.0" (so "lumen5.0/lumen" gives only 4, "lumen/lumen5.0" 6);
// "SDK" 1; "QAPI" 8.
uint32_t protocolMaskFromText(const char* text);
// The "Protocol" text written for a mask: "lumen/", "QAPI/", "SDK/",
// "lumen5.0" for the bits 2, 8, 1, 4, in that order; "" for 0.
std::string protocolText(uint32_t mask);

// Members that setters change while getters read them without a lock are
// accessed atomically (relaxed): a reader sees the old or the new value.
template <class T>
T loadRelaxed(const T& member) {
  T out;
  __atomic_load(&member, &out, __ATOMIC_RELAXED);
  return out;
}
template <class T>
void storeRelaxed(T& member, T value) {
  __atomic_store(&member, &value, __ATOMIC_RELAXED);
}

// Guards the text fields, masks and count of the address table in memory
// (never held across file work): readers copy under the shared side, the
// refresh and the setters change under the exclusive side.
OxBase::CRWLock& addrTableLock();

// CXmlBase::ModifyData, unless a test made it refuse the element `name`.
int modifyText(OxBase::CXmlBase& xml, const char* name, const char* value);

// Test seams.
// Makes modifyText refuse (return 0) for the element names for which
// `refuse` returns true; nullptr restores the real behaviour.
void setModifyRefusalForTest(bool (*refuse)(const char* name));
// Forgets the time of the last adapter refresh, so the next one runs.
void resetAdapterRefreshForTest();

}  // namespace netinternal
}  // namespace OxConfigMgr

#endif  // OXCFG_NETWORK_NETWORK_INTERNAL_H
