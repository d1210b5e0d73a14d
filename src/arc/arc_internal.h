// Pieces shared by the alarm-receiving-centre classes: bounded text fields
// and the carry-over steps, which work on documents and so stay out of the
// public headers.
#ifndef OXCFG_ARC_ARC_INTERNAL_H
#define OXCFG_ARC_ARC_INTERNAL_H

#include <oxconfigmgr/OxConvertCodeCfg.h>

#include <cstddef>
#include <cstring>
#include <map>
#include <string>

#include "platform/osl.h"
#include "platform/xml_base.h"

namespace OxConfigMgr {

// Puts `text` into a fixed field, cut to N - 1 characters, and zeroes the
// rest: a record loaded from a file then has the same bytes whatever the
// field held before.
template <size_t N>
void setField(char (&field)[N], const char* text) {
  std::memset(field, 0, N);
  OSL_Strncpy(field, text, N);
}

// Makes sure a field that came from a caller ends within its width.
template <size_t N>
void terminateField(char (&field)[N]) {
  field[N - 1] = '\0';
}

// The old layout kept the enable switch as "Config/SGConfig/Enable": a
// non-zero value there is written to "Config/Protocol/Enable" of the new
// document (a zero leaves what the merge put there).
void parseNewARCConfig(OxBase::CXmlBase& newDoc, OxBase::CXmlBase& backupDoc);

// Releases up to V1.3.2 wrote the Sur-Gard rows directly under
// "NyxCodeToSGConfig": for a backup of such a release (by the version the
// carry-over of "Config.xml" read) the rows are moved into a new "CodeList",
// in key order, the first row of a code kept.
void upgradeBackupConvertCodeConfig(OxBase::CXmlBase& backupDoc);

// Merges the user's rows into the new factory document: element texts as in
// copyXMLRecursive, "Code" rows matched by their "NyxCode" attribute, and
// backup rows without a match appended at the end of their list.
void copyCodeXMLRecursive(OxBase::CXmlBase& newDoc, OxBase::CXmlBase& backupDoc);

// Reads the children of the current "Code" element into a zeroed row: the
// texts always, "SIA" and "Enabled" (exactly "true") only when asked for.
tagConvertSGInfo readCodeRow(OxBase::CXmlBase& xml, bool withSIA, bool withEnabled);

// Appends a "Code" to the current element (a "CodeList") with the row's
// non-empty texts, then "SIA" (type 1, when non-empty) or "Enabled" (type 2,
// always), and the "NyxCode" attribute; the "CodeList" is current again
// afterwards. False when the document refused a node.
bool appendCodeRow(OxBase::CXmlBase& xml, const std::string& key, const tagConvertSGInfo& row,
                   ProtocolType type);

}  // namespace OxConfigMgr

#endif  // OXCFG_ARC_ARC_INTERNAL_H
