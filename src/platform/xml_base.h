// An XML document with a cursor, over pugixml.
//
// The cursor has a current level (the children of one element, or the
// top-level nodes of the document) and, on that level, possibly a current
// element. After LoadFile or Parse the level is the document's top level and
// there is no current element, so FindElem("Config") then finds the root.
//
// Contracts the configuration code relies on:
//  - FindElem(name) makes the FIRST element of that name on the current level
//    current, wherever the current element is, so fields can be read in any
//    order. FindNextElem(name) moves to the next element of that name after
//    the current one; loops over repeated elements use the pair and visit each
//    element exactly once, in document order, whatever else is interleaved.
//  - IntoElem enters the current element: its children become the level and
//    the first child element becomes current. It fails on an element without
//    child elements (a leaf) and changes nothing then.
//  - OutOfElem makes the parent current again; it fails at the top level.
//  - NextSibElem moves to the next element on the level; it fails at the end
//    (with no current element it moves to the first one).
//  - ModifyData(name, value) changes the text of the first element `name` on
//    the current level and returns 1; it returns 0 when there is none.
//  - AddNode(name) appends a child element to the current element (to the
//    level's parent when there is no current element) and makes it current,
//    so that the next AddNode appends inside it. AddNode(name, value) appends
//    a leaf child with that text and leaves the cursor where it was, so a
//    series of AddNode(name, value) fills one element. AddNode(xml) appends a
//    copy of another document's root element and makes it current.
//  - RemoveNode() removes the current element; the element before it becomes
//    current (none when it was the first), so NextSibElem continues with the
//    element that followed the removed one. RemoveNode(name) and
//    RemoveChildren(name) remove the first, or every, child of that name of
//    the current element.
//  - LoadFile refuses files larger than 16 MiB and anything pugixml rejects.
//  - WriteToFile replaces the file atomically and durably, keeping its
//    permissions (or making it 0600 for FileMode::kSecret); output is
//    indented with one tab per level.
// The cursor follows documents of any depth (pugixml parses them without
// recursion); the store's merge, copyXMLRecursive, stops at 64 levels
// (kMergeDepthLimit in frame/config_store.h).
// A CXmlBase is not thread-safe; each use makes its own local instance.
#ifndef OXCFG_PLATFORM_XML_BASE_H
#define OXCFG_PLATFORM_XML_BASE_H

#include <memory>
#include <string>

#include "platform/file_util.h"

namespace OxBase {

class CXmlBase {
 public:
  static constexpr size_t kMaxFileBytes = 16u << 20;

  CXmlBase();
  ~CXmlBase();
  CXmlBase(const CXmlBase&) = delete;
  CXmlBase& operator=(const CXmlBase&) = delete;

  // 1 on success, 0 on failure (the document is then empty).
  int LoadFile(const char* path);
  int LoadFile(const std::string& path) { return LoadFile(path.c_str()); }
  int Parse(const char* text);
  int Parse(const std::string& text);
  // 1 when the new content is in place, also when only the directory fsync
  // after the rename failed (the caller's memory must then follow the disk);
  // 0 when nothing was written (the file is unchanged), including a write
  // refused for want of its lock (OxBase::ScopedWriteRefusal).
  int WriteToFile(const char* path, FileMode mode = FileMode::kKeep) const;
  int WriteToFile(const std::string& path, FileMode mode = FileMode::kKeep) const {
    return WriteToFile(path.c_str(), mode);
  }
  // The document as text, as WriteToFile would write it.
  std::string ToString() const;
  // The current element and its subtree as text; "" when there is none.
  std::string GetElemXml() const;

  // Level: the top level; current: the root element. False without a root.
  bool SetRoot();
  bool FindElem(const char* name);
  bool FindNextElem(const char* name);
  bool IntoElem();
  bool OutOfElem();
  bool NextSibElem();

  // Name and text of the current element; "" when there is none.
  const char* GetNodeName() const;
  const char* GetData() const;
  int ModifyData(const char* name, const char* value);

  bool AddNode(const char* name);
  bool AddNode(const char* name, const char* value);
  bool AddNode(const CXmlBase& xml);
  bool RemoveNode();
  bool RemoveNode(const char* name);
  int RemoveChildren(const char* name);

  // Number of child elements of the current element.
  int GetChildren() const;
  // Attribute of the current element; "" when absent.
  const char* GetAttributeValue(const char* name) const;
  bool SetAttribute(const char* name, const char* value);

 private:
  struct Impl;
  std::unique_ptr<Impl> impl_;
};

}  // namespace OxBase

#endif  // OXCFG_PLATFORM_XML_BASE_H
