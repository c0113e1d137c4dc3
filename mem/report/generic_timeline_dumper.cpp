#include "mem/report/generic_timeline_dumper.h"

#include <algorithm>
#include <utility>

MEM_TIMELINE_SUMMARY::MEM_TIMELINE_SUMMARY(MEM_TIMELINE_COLUMNS columns)
    : m_columns(std::move(columns)),
      m_hidden(m_columns.size() > most_shown ? m_columns.size() - most_shown : 0) {
  std::stable_sort(
      m_columns.begin(), m_columns.end(),
      [](const MEM_TIMELINE_COLUMN& a, const MEM_TIMELINE_COLUMN& b) { return a.max < b.max; });
}

void MEM_TIMELINE_SUMMARY::write_header(MEM_REPORT_TEXT& out) const {
  out << "\tMisc";
  for (std::size_t shown = m_hidden; shown < m_columns.size(); ++shown)
    out << '\t' << m_columns[shown].name;
  out << '\n';
}

void MEM_TIMELINE_SUMMARY::write_next(MEM_REPORT_TEXT& out) {
  std::int64_t misc = 0;
  for (std::size_t hidden = 0; hidden < m_hidden; ++hidden) misc += *m_columns[hidden].value;
  out << '\t' << misc;
  for (std::size_t shown = m_hidden; shown < m_columns.size(); ++shown)
    out << '\t' << *m_columns[shown].value;
  out << '\n';
  for (MEM_TIMELINE_COLUMN& column : m_columns) ++column.value;
}
