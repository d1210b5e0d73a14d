// Result sets: rows copied out of SQLite, read forward by column name.
#include <strings.h>

#include "platform/sqlite3do_internal.h"

namespace Sqlite3DO {

bool CSQLite3Recordset::Next() {
  if (m_row < m_rows.size()) ++m_row;
  return !IsEOF();
}

const CSQLite3Recordset::Cell* CSQLite3Recordset::Find(const char* name) const {
  if (IsEOF() || !name) return nullptr;
  for (size_t i = 0; i < m_columns.size(); ++i) {
    if (strcasecmp(m_columns[i].c_str(), name) == 0) return &m_rows[m_row][i];
  }
  return nullptr;
}

int CSQLite3Recordset::GetInt(const char* name) const { return static_cast<int>(GetInt64(name)); }

int64_t CSQLite3Recordset::GetInt64(const char* name) const {
  const Cell* c = Find(name);
  return c && !c->null ? c->integer : 0;
}

std::string CSQLite3Recordset::GetString(const char* name) const { return GetText(name); }

const char* CSQLite3Recordset::GetText(const char* name) const {
  const Cell* c = Find(name);
  return c && !c->null ? c->text.c_str() : "";
}

bool CSQLite3Recordset::IsNull(const char* name) const {
  const Cell* c = Find(name);
  return !c || c->null;
}

void CSQLite3Recordset::Clear() {
  m_columns.clear();
  m_rows.clear();
  m_row = 0;
}

// Each statement with columns starts the recordset afresh, so it ends up with
// the rows of the last one.
void RecordsetFiller::Columns(sqlite3_stmt* stmt) {
  m_rs.Clear();
  const int columns = sqlite3_column_count(stmt);
  m_rs.m_columns.reserve(static_cast<size_t>(columns));
  for (int c = 0; c < columns; ++c) {
    const char* name = sqlite3_column_name(stmt, c);
    m_rs.m_columns.emplace_back(name ? name : "");
  }
}

bool RecordsetFiller::Row(sqlite3_stmt* stmt) {
  const int columns = sqlite3_column_count(stmt);
  std::vector<CSQLite3Recordset::Cell> row(static_cast<size_t>(columns));
  for (int c = 0; c < columns; ++c) {
    CSQLite3Recordset::Cell& cell = row[static_cast<size_t>(c)];
    if (sqlite3_column_type(stmt, c) == SQLITE_NULL) continue;
    cell.null = false;
    cell.integer = sqlite3_column_int64(stmt, c);
    const unsigned char* text = sqlite3_column_text(stmt, c);
    int bytes = sqlite3_column_bytes(stmt, c);
    if (text && bytes > 0) cell.text.assign(reinterpret_cast<const char*>(text), static_cast<size_t>(bytes));
  }
  if (m_lastRowOnly) {
    m_rs.m_rows.clear();
    m_rs.m_row = 0;
  }
  m_rs.m_rows.push_back(std::move(row));
  return true;
}

}  // namespace Sqlite3DO
