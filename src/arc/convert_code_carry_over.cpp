// Carry-over of "ConvertCodeConfig_Backup.xml": the old-layout upgrade of the
// backup and the row-wise merge into the new factory file.
#include <oxconfigmgr/OxConfigMgr.h>
#include <oxconfigmgr/OxConvertCodeCfg.h>

#include <deque>
#include <map>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "arc/arc_internal.h"
#include "frame/config_store.h"
#include "platform/xml_base.h"

namespace OxConfigMgr {

using OxBase::CXmlBase;

namespace {

// Deeper levels are not merged, so hostile documents cannot exhaust the stack.
constexpr int kMaxMergeDepth = 64;

// The "Code" rows of one level of the backup, in document order, each with
// its direct children as (name, text).
class BackupRows {
 public:
  struct Row {
    std::string key;
    std::vector<std::pair<std::string, std::string>> children;
    bool used = false;
  };

  // Reads the rows of the level `src` is on.
  void collect(CXmlBase& src) {
    for (bool more = src.FindElem("Code"); more; more = src.FindNextElem("Code")) {
      Row row;
      row.key = src.GetAttributeValue("NyxCode");
      if (src.IntoElem()) {
        do {
          row.children.emplace_back(src.GetNodeName(), src.GetData());
        } while (src.NextSibElem());
        src.OutOfElem();
      }
      byKey_[row.key].push_back(rows_.size());
      rows_.push_back(std::move(row));
    }
  }

  // The first row of `key` not taken yet; null when there is none.
  Row* take(const std::string& key) {
    auto it = byKey_.find(key);
    if (it == byKey_.end() || it->second.empty()) return nullptr;
    Row* row = &rows_[it->second.front()];
    it->second.pop_front();
    row->used = true;
    return row;
  }

  // Appends every row not taken to the current element (the list), which is
  // current again afterwards.
  void appendUnused(CXmlBase& dst) const {
    for (const Row& row : rows_) {
      if (row.used || !dst.AddNode("Code")) continue;
      for (const auto& child : row.children) dst.AddNode(child.first.c_str(), child.second.c_str());
      dst.SetAttribute("NyxCode", row.key.c_str());
      dst.OutOfElem();
    }
  }

 private:
  std::vector<Row> rows_;
  std::map<std::string, std::deque<size_t>> byKey_;
};

// The user's values into the current "Code" of the new document: each leaf
// takes the text of the backup row's first child of its name.
void mergeRow(CXmlBase& dst, const BackupRows::Row& row) {
  if (!dst.IntoElem()) return;
  do {
    const std::string name = dst.GetNodeName();
    if (dst.IntoElem()) {
      dst.OutOfElem();
      continue;
    }
    for (const auto& child : row.children) {
      if (child.first == name) {
        dst.ModifyData(name.c_str(), child.second.c_str());
        break;
      }
    }
  } while (dst.NextSibElem());
  dst.OutOfElem();
}

// One level: `dst` is on an element of it, `src` on the matching level of
// the backup. Returns the backup rows of the level when the level holds
// "Code" rows, so the caller appends those left over after the list.
std::unique_ptr<BackupRows> mergeLevel(CXmlBase& dst, CXmlBase& src, int depth) {
  std::unique_ptr<BackupRows> codes;
  do {
    const std::string name = dst.GetNodeName();
    if (name.empty()) continue;
    if (name == "Code") {
      if (!codes) {
        codes.reset(new BackupRows);
        codes->collect(src);
      }
      if (const BackupRows::Row* row = codes->take(dst.GetAttributeValue("NyxCode"))) mergeRow(dst, *row);
      continue;
    }
    if (!src.FindElem(name.c_str())) continue;
    if (dst.IntoElem()) {
      std::unique_ptr<BackupRows> left;
      if (depth < kMaxMergeDepth && src.IntoElem()) {
        left = mergeLevel(dst, src, depth + 1);
        if (!left && name == "CodeList") {
          // A list of the new release without rows keeps the user's.
          left.reset(new BackupRows);
          left->collect(src);
        }
        src.OutOfElem();
      }
      dst.OutOfElem();
      if (left) left->appendUnused(dst);
    } else if (name == "CodeList") {
      // An empty list in the new release: the user's rows fill it.
      if (src.IntoElem()) {
        BackupRows all;
        all.collect(src);
        src.OutOfElem();
        all.appendUnused(dst);
      }
    } else {
      dst.ModifyData(name.c_str(), src.GetData());
    }
  } while (dst.NextSibElem());
  return codes;
}

bool contains(const std::string& text, const char* part) { return text.find(part) != std::string::npos; }

}  // namespace

void copyCodeXMLRecursive(CXmlBase& newDoc, CXmlBase& backupDoc) { mergeLevel(newDoc, backupDoc, 0); }

void upgradeBackupConvertCodeConfig(CXmlBase& backupDoc) {
  std::string version = OX_ConfigMgr_GetBackupVersion();
  if (contains(version, "V1.2.0") || contains(version, "V1.2.1")) version = "V1.3.0.0";
  if (contains(version, "V1.3.0")) version = "V1.3.1.0";
  if (contains(version, "V1.3.1")) version = "V1.3.2.0";
  if (!contains(version, "V1.3.2")) return;

  if (!xmlWalk(backupDoc, {"ConvertCodeConfig", "NyxCodeToSGConfig"})) return;
  std::map<std::string, tagConvertSGInfo> rows;
  if (backupDoc.IntoElem()) {
    if (backupDoc.FindElem("CodeList")) return;  // already the current layout
    for (bool more = backupDoc.FindElem("Code"); more; more = backupDoc.FindNextElem("Code")) {
      // The first row of a code is kept here (loading keeps the last).
      rows.emplace(backupDoc.GetAttributeValue("NyxCode"), readCodeRow(backupDoc, true, false));
      backupDoc.RemoveNode();
    }
    backupDoc.OutOfElem();
  }
  if (!backupDoc.AddNode("CodeList")) return;
  for (const auto& row : rows) appendCodeRow(backupDoc, row.first, row.second, PROTOCOL_TYPE_SG);
}

}  // namespace OxConfigMgr
