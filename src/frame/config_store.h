// The XML configuration store: file paths, whole-file load and store of
// "Config.xml" under the process-wide reader/writer lock, the merge of one
// document into another, and cursor helpers shared by the section classes.
#ifndef OXCFG_FRAME_CONFIG_STORE_H
#define OXCFG_FRAME_CONFIG_STORE_H

#include <initializer_list>
#include <string>

#include "platform/rwlock.h"
#include "platform/xml_base.h"

namespace OxConfigMgr {

// Guards every load and store of "Config.xml" made through readConfigFile and
// writeConfigFile: readers share it, a writer has the file alone.
extern OxBase::CRWLock m_gConfigFileLock;

// The working directory (OX_BASE_GetCurDir, asked anew) followed by the name.
std::string getConfigFilePath();
std::string getPrivateConfigFilePath();
std::string getARCConfigFilePath();
std::string getConvertCodeCfgFilePath();
std::string getQAPIConfigFilePath();

// Loads "Config.xml" into `xml` under the read lock. 1 on success; 0 (logged
// as "config file is not exist") when it is missing or does not parse.
int readConfigFile(OxBase::CXmlBase& xml);
// Replaces "Config.xml" with `xml` under the write lock, atomically. 1 on
// success; 0 (logged with the same text as a failed read) otherwise.
int writeConfigFile(const OxBase::CXmlBase& xml);

// How many element levels copyXMLRecursive follows, counting the level it
// starts on as the first. Configuration files are a handful of levels deep;
// the limit keeps a hostile document (a backup or an imported archive) from
// exhausting the stack.
constexpr int kMergeDepthLimit = 64;

// Merges the element texts of `src` into `dest`, starting at the current
// elements of both: elements only in `src` are ignored, elements only in
// `dest` keep their text, and leaves present in both take the text of `src`
// (CXmlBase::ModifyData by the leaf's name, so the first leaf of that name
// on the level), except those named `excluded` (may be null). Elements below
// kMergeDepthLimit levels are left as `dest` has them.
void copyXMLRecursive(OxBase::CXmlBase& dest, OxBase::CXmlBase& src, const char* excluded);

// From the document's top level, finds each name in turn, entering every
// element but the last: afterwards the last one is current (not entered).
// False, with the cursor somewhere on the way, when one is missing.
bool xmlWalk(OxBase::CXmlBase& xml, std::initializer_list<const char*> path);
// Text of the first child `name` of the current element, leaving the cursor
// as it was. False when there is no such child.
bool xmlChildText(OxBase::CXmlBase& xml, const char* name, std::string* text);
// Sets the text of the first child `name` of the current element, appending
// the child when it is missing; the cursor stays as it was.
bool xmlSetChildText(OxBase::CXmlBase& xml, const char* name, const char* text);

}  // namespace OxConfigMgr

#endif  // OXCFG_FRAME_CONFIG_STORE_H
