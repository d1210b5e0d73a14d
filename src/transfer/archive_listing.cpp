#include "transfer/archive_listing.h"

#include <map>
#include <mutex>
#include <set>

namespace OxConfigMgr {
namespace transfer {

namespace {

std::mutex g_limitsMutex;
ArchiveLimits g_limits = defaultArchiveLimits();

const char* const kSeparator = "----------";

bool fail(std::string* reason, const std::string& why) {
  if (reason) *reason = why;
  return false;
}

// Decimal digits only, without overflow; empty text is 0.
bool parseSize(const std::string& text, uint64_t* out) {
  uint64_t v = 0;
  for (char c : text) {
    if (c < '0' || c > '9') return false;
    if (v > (UINT64_MAX - 9) / 10) return false;
    v = v * 10 + static_cast<uint64_t>(c - '0');
  }
  *out = v;
  return true;
}

// The path is relative, made of non-empty components other than "." and
// "..", and free of backslashes and control characters.
bool safeComponents(const std::string& path, std::vector<std::string>* parts) {
  if (path.empty() || path[0] == '/') return false;
  for (unsigned char c : path) {
    if (c < 0x20 || c == 0x7f || c == '\\') return false;
  }
  size_t start = 0;
  for (;;) {
    size_t slash = path.find('/', start);
    std::string part = path.substr(start, slash == std::string::npos ? std::string::npos : slash - start);
    if (part.empty() || part == "." || part == "..") return false;
    parts->push_back(part);
    if (slash == std::string::npos) return true;
    start = slash + 1;
  }
}

// The type letter of the Unix mode that 7za appends to "Attributes" (for
// example "A -rw-r--r--" or "D drwxr-xr-x"); 0 when there is none.
char unixTypeLetter(const std::string& attributes) {
  size_t space = attributes.find_last_of(' ');
  std::string last = space == std::string::npos ? attributes : attributes.substr(space + 1);
  if (last.size() != 10) return 0;
  for (size_t i = 1; i < last.size(); ++i) {
    if (std::string("rwxsStT-").find(last[i]) == std::string::npos) return 0;
  }
  return last[0];
}

using Block = std::map<std::string, std::string>;

bool checkEntry(const Block& block, const std::string& staging, const ArchiveLimits& limits,
                ArchiveEntry* entry, std::string* reason) {
  auto path = block.find("Path");
  if (path == block.end()) return fail(reason, "entry without a path");
  entry->path = path->second;
  std::vector<std::string> parts;
  if (!safeComponents(entry->path, &parts)) return fail(reason, "unsafe path: " + entry->path);
  if (parts[0] != staging || parts.size() > 2) return fail(reason, "outside the staging folder: " + entry->path);

  auto folder = block.find("Folder");
  std::string folderFlag = folder == block.end() ? std::string("-") : folder->second;
  if (folderFlag != "+" && folderFlag != "-") return fail(reason, "unknown folder flag: " + entry->path);
  entry->folder = folderFlag == "+";
  // Only the staging folder itself may be a folder; files lie directly in it.
  if (entry->folder != (parts.size() == 1)) return fail(reason, "unexpected layout: " + entry->path);

  auto attributes = block.find("Attributes");
  if (attributes != block.end()) {
    char type = unixTypeLetter(attributes->second);
    bool plain = type == 0 || type == '0' || type == (entry->folder ? 'd' : '-');
    if (!plain) return fail(reason, "link or special file: " + entry->path);
  }

  auto size = block.find("Size");
  entry->size = 0;
  if (size != block.end() && !parseSize(size->second, &entry->size)) {
    return fail(reason, "unreadable size: " + entry->path);
  }
  if (entry->size > limits.maxEntryBytes) return fail(reason, "entry too large: " + entry->path);
  return true;
}

}  // namespace

ArchiveLimits defaultArchiveLimits() {
  ArchiveLimits l;
  l.maxArchiveBytes = 64u << 20;
  l.maxEntries = 64;
  l.maxEntryBytes = 64u << 20;
  l.maxTotalBytes = 128u << 20;
  l.maxDirectoryBytes = 1u << 20;
  l.timeoutSeconds = 120;
  return l;
}

ArchiveLimits currentArchiveLimits() {
  std::lock_guard<std::mutex> lock(g_limitsMutex);
  return g_limits;
}

void setArchiveLimits(const ArchiveLimits& limits) {
  std::lock_guard<std::mutex> lock(g_limitsMutex);
  g_limits = limits;
}

bool checkArchiveListing(const std::string& listing, const std::string& staging,
                         const ArchiveLimits& limits, std::vector<ArchiveEntry>* entries,
                         std::string* reason) {
  std::vector<std::string> lines;
  size_t start = 0;
  while (start <= listing.size()) {
    size_t nl = listing.find('\n', start);
    std::string line = listing.substr(start, nl == std::string::npos ? std::string::npos : nl - start);
    if (!line.empty() && line.back() == '\r') line.pop_back();
    lines.push_back(line);
    if (nl == std::string::npos) break;
    start = nl + 1;
  }
  size_t i = 0;
  while (i < lines.size() && lines[i] != kSeparator) ++i;
  if (i == lines.size()) return fail(reason, "no entry list");

  std::vector<ArchiveEntry> accepted;
  std::set<std::string> seen;
  uint64_t total = 0;
  Block block;
  auto finish = [&]() {
    if (block.empty()) return true;
    ArchiveEntry entry;
    if (!checkEntry(block, staging, limits, &entry, reason)) return false;
    block.clear();
    if (!seen.insert(entry.path).second) return fail(reason, "entry named twice: " + entry.path);
    if (accepted.size() >= limits.maxEntries) return fail(reason, "too many entries");
    total += entry.size;
    if (total > limits.maxTotalBytes) return fail(reason, "entries too large in all");
    accepted.push_back(std::move(entry));
    return true;
  };
  for (++i; i < lines.size(); ++i) {
    const std::string& line = lines[i];
    if (line.empty()) {
      if (!finish()) return false;
      continue;
    }
    size_t eq = line.find(" = ");
    std::string key = eq == std::string::npos ? std::string() : line.substr(0, eq);
    bool keyOk = !key.empty();
    for (char c : key) keyOk = keyOk && ((c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') || c == ' ');
    if (!keyOk) return fail(reason, "unexpected listing line");
    if (!block.emplace(key, line.substr(eq + 3)).second) return fail(reason, "key repeated in an entry");
  }
  if (!finish()) return false;
  if (entries) *entries = std::move(accepted);
  return true;
}

bool readZipDirectory(const unsigned char* tail, size_t len, uint64_t fileSize,
                      const ArchiveLimits& limits, ZipDirectory* out, std::string* reason) {
  if (!tail || len < 22 || len > fileSize) return fail(reason, "not a ZIP archive");
  auto u16 = [&](size_t at) { return static_cast<uint32_t>(tail[at] | (tail[at + 1] << 8)); };
  auto u32 = [&](size_t at) { return u16(at) | (u16(at + 2) << 16); };
  // The last record whose comment ends exactly at the end of the file.
  for (size_t at = len - 22 + 1; at-- > 0;) {
    if (tail[at] != 'P' || tail[at + 1] != 'K' || tail[at + 2] != 5 || tail[at + 3] != 6) continue;
    if (at + 22 + u16(at + 20) != len) continue;
    if (u16(at + 4) != 0 || u16(at + 6) != 0) return fail(reason, "multi-disk archive");
    uint32_t onDisk = u16(at + 8), total = u16(at + 10);
    uint32_t dirBytes = u32(at + 12), dirOffset = u32(at + 16);
    if (total == 0xffff || onDisk != total || dirBytes == 0xffffffffu || dirOffset == 0xffffffffu) {
      return fail(reason, "ZIP64 or inconsistent directory");
    }
    uint64_t recordOffset = fileSize - len + at;
    if (static_cast<uint64_t>(dirOffset) + dirBytes > recordOffset) return fail(reason, "directory out of place");
    if (total > limits.maxEntries) return fail(reason, "too many entries");
    if (dirBytes > limits.maxDirectoryBytes) return fail(reason, "directory too large");
    out->entries = total;
    out->directoryBytes = dirBytes;
    return true;
  }
  return fail(reason, "not a ZIP archive");
}

}  // namespace transfer
}  // namespace OxConfigMgr
