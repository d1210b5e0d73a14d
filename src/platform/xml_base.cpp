#include "platform/xml_base.h"

#include <pugixml.hpp>

#include <cerrno>
#include <cstring>

namespace OxBase {

struct CXmlBase::Impl {
  pugi::xml_document doc;
  pugi::xml_node level;  // the node whose children form the current level
  pugi::xml_node cur;    // the current element on that level, or null

  void Reset() {
    level = doc;
    cur = pugi::xml_node();
  }
  // The element that child-based operations act on.
  pugi::xml_node Target() const { return cur ? cur : level; }
  // Makes `added`, just appended to Target(), the current element.
  bool Enter(const pugi::xml_node& added) {
    if (!added) return false;
    level = added.parent();
    cur = added;
    return true;
  }
};

namespace {

bool IsElement(const pugi::xml_node& n) { return n.type() == pugi::node_element; }

pugi::xml_node FirstElement(const pugi::xml_node& parent, const char* name) {
  for (pugi::xml_node n = parent.first_child(); n; n = n.next_sibling()) {
    if (IsElement(n) && (!name || std::strcmp(n.name(), name) == 0)) return n;
  }
  return pugi::xml_node();
}

pugi::xml_node NextElement(const pugi::xml_node& from, const char* name) {
  for (pugi::xml_node n = from.next_sibling(); n; n = n.next_sibling()) {
    if (IsElement(n) && (!name || std::strcmp(n.name(), name) == 0)) return n;
  }
  return pugi::xml_node();
}

pugi::xml_node PreviousElement(const pugi::xml_node& from) {
  for (pugi::xml_node n = from.previous_sibling(); n; n = n.previous_sibling()) {
    if (IsElement(n)) return n;
  }
  return pugi::xml_node();
}

struct StringWriter : pugi::xml_writer {
  std::string out;
  void write(const void* data, size_t size) override {
    out.append(static_cast<const char*>(data), size);
  }
};

constexpr unsigned kParseOptions = pugi::parse_default | pugi::parse_declaration;

}  // namespace

CXmlBase::CXmlBase() : impl_(new Impl) { impl_->Reset(); }
CXmlBase::~CXmlBase() = default;

int CXmlBase::LoadFile(const char* path) {
  impl_->doc.reset();
  impl_->Reset();
  if (!path) return 0;
  std::string data;
  if (!ReadWholeFile(path, &data, kMaxFileBytes)) return 0;
  return Parse(data);
}

int CXmlBase::Parse(const char* text) {
  if (!text) {
    impl_->doc.reset();
    impl_->Reset();
    return 0;
  }
  return Parse(std::string(text));
}

int CXmlBase::Parse(const std::string& text) {
  impl_->doc.reset();
  impl_->Reset();
  if (text.size() > kMaxFileBytes) return 0;
  pugi::xml_parse_result r =
      impl_->doc.load_buffer(text.data(), text.size(), kParseOptions, pugi::encoding_auto);
  if (!r || !impl_->doc.document_element()) {
    impl_->doc.reset();
    impl_->Reset();
    return 0;
  }
  impl_->Reset();
  return 1;
}

std::string CXmlBase::ToString() const {
  StringWriter w;
  impl_->doc.save(w, "\t", pugi::format_default, pugi::encoding_utf8);
  return w.out;
}

std::string CXmlBase::GetElemXml() const {
  if (!impl_->cur) return std::string();
  StringWriter w;
  impl_->cur.print(w, "\t", pugi::format_default, pugi::encoding_utf8);
  return w.out;
}

int CXmlBase::WriteToFile(const char* path, FileMode mode) const {
  if (!path) return 0;
  std::string text = ToString();
  // A failed directory fsync after the rename still leaves the new text in
  // place: the caller's memory must follow the disk, so that counts as written.
  return WriteFileAtomic(path, text, mode).landed() ? 1 : 0;
}

bool CXmlBase::SetRoot() {
  impl_->level = impl_->doc;
  impl_->cur = impl_->doc.document_element();
  return static_cast<bool>(impl_->cur);
}

bool CXmlBase::FindElem(const char* name) {
  if (!name) return false;
  pugi::xml_node n = FirstElement(impl_->level, name);
  if (!n) return false;
  impl_->cur = n;
  return true;
}

bool CXmlBase::FindNextElem(const char* name) {
  if (!name) return false;
  pugi::xml_node n = impl_->cur ? NextElement(impl_->cur, name) : FirstElement(impl_->level, name);
  if (!n) return false;
  impl_->cur = n;
  return true;
}

bool CXmlBase::IntoElem() {
  if (!impl_->cur) return false;
  pugi::xml_node first = FirstElement(impl_->cur, nullptr);
  if (!first) return false;
  impl_->level = impl_->cur;
  impl_->cur = first;
  return true;
}

bool CXmlBase::OutOfElem() {
  if (impl_->level == impl_->doc || !impl_->level) return false;
  impl_->cur = impl_->level;
  impl_->level = impl_->level.parent();
  return true;
}

bool CXmlBase::NextSibElem() {
  pugi::xml_node n = impl_->cur ? NextElement(impl_->cur, nullptr) : FirstElement(impl_->level, nullptr);
  if (!n) return false;
  impl_->cur = n;
  return true;
}

const char* CXmlBase::GetNodeName() const { return impl_->cur ? impl_->cur.name() : ""; }

const char* CXmlBase::GetData() const { return impl_->cur ? impl_->cur.text().get() : ""; }

int CXmlBase::ModifyData(const char* name, const char* value) {
  if (!name || !value) return 0;
  pugi::xml_node n = FirstElement(impl_->level, name);
  if (!n) return 0;
  return n.text().set(value) ? 1 : 0;
}

bool CXmlBase::AddNode(const char* name) {
  if (!name || !*name) return false;
  return impl_->Enter(impl_->Target().append_child(name));
}

bool CXmlBase::AddNode(const char* name, const char* value) {
  if (!name || !*name || !value) return false;
  pugi::xml_node n = impl_->Target().append_child(name);
  if (!n) return false;
  return n.text().set(value);
}

bool CXmlBase::AddNode(const CXmlBase& xml) {
  pugi::xml_node root = xml.impl_->doc.document_element();
  if (!root) return false;
  return impl_->Enter(impl_->Target().append_copy(root));
}

bool CXmlBase::RemoveNode() {
  if (!impl_->cur) return false;
  pugi::xml_node victim = impl_->cur;
  impl_->cur = PreviousElement(victim);
  return impl_->level.remove_child(victim);
}

bool CXmlBase::RemoveNode(const char* name) {
  if (!name) return false;
  pugi::xml_node parent = impl_->Target();
  pugi::xml_node n = FirstElement(parent, name);
  if (!n) return false;
  return parent.remove_child(n);
}

int CXmlBase::RemoveChildren(const char* name) {
  if (!name) return 0;
  pugi::xml_node parent = impl_->Target();
  int removed = 0;
  for (pugi::xml_node n = FirstElement(parent, name); n; n = FirstElement(parent, name)) {
    parent.remove_child(n);
    ++removed;
  }
  return removed;
}

int CXmlBase::GetChildren() const {
  if (!impl_->cur) return 0;
  int count = 0;
  for (pugi::xml_node n = FirstElement(impl_->cur, nullptr); n; n = NextElement(n, nullptr)) ++count;
  return count;
}

const char* CXmlBase::GetAttributeValue(const char* name) const {
  if (!impl_->cur || !name) return "";
  return impl_->cur.attribute(name).value();
}

bool CXmlBase::SetAttribute(const char* name, const char* value) {
  if (!impl_->cur || !name || !*name || !value) return false;
  pugi::xml_attribute a = impl_->cur.attribute(name);
  if (!a) a = impl_->cur.append_attribute(name);
  return a && a.set_value(value);
}

}  // namespace OxBase
