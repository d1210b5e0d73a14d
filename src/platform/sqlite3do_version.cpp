// Dotted schema versions.
#include <climits>
#include <cstdint>

#include "platform/sqlite3do.h"

namespace Sqlite3DO {

CDBVersion::CDBVersion(const std::string& text) : m_text(text) {
  if (text.empty()) return;
  uint64_t value = 0;
  bool digits = false;
  for (size_t i = 0; i <= text.size(); ++i) {
    if (i == text.size() || text[i] == '.') {
      if (!digits) return;  // empty part: "1..2", ".1", "1."
      m_parts.push_back(static_cast<uint32_t>(value));
      value = 0;
      digits = false;
    } else if (text[i] >= '0' && text[i] <= '9') {
      value = value * 10 + static_cast<uint64_t>(text[i] - '0');
      if (value > UINT32_MAX) return;
      digits = true;
    } else {
      return;
    }
  }
  m_valid = true;
}

int CDBVersion::Compare(const CDBVersion& other) const {
  if (!m_valid || !other.m_valid) return static_cast<int>(m_valid) - static_cast<int>(other.m_valid);
  size_t n = m_parts.size() > other.m_parts.size() ? m_parts.size() : other.m_parts.size();
  for (size_t i = 0; i < n; ++i) {
    uint32_t a = i < m_parts.size() ? m_parts[i] : 0;
    uint32_t b = i < other.m_parts.size() ? other.m_parts[i] : 0;
    if (a != b) return a < b ? -1 : 1;
  }
  return 0;
}

}  // namespace Sqlite3DO
