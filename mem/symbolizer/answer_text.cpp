#include "mem/symbolizer/answer_text.h"

#include <algorithm>

void MEM_ANSWER_TEXT::take(std::string_view piece) {
  for (const char c : piece) take_character(c);
}

void MEM_ANSWER_TEXT::take_character(char c) {
  if (m_has_end_mark) return;
  if (m_total + 1 < m_size) m_buffer[m_total] = c;
  ++m_total;
  if (c == '\n') return end_line();
  if (m_line_length < head_size) m_line_head[m_line_length] = c;
  ++m_line_length;
}

void MEM_ANSWER_TEXT::end_line() {
  const bool is_location = m_lines++ % 2 == 1;
  const std::string_view line(m_line_head, std::min(m_line_length, head_size));
  m_line_length = 0;
  if (!is_location) {
    m_mark_lines = line == "??" ? 1 : 0;
    return;
  }
  if (m_mark_lines == 1 && line == "??:0") m_mark_lines = 2;
  m_has_end_mark = m_mark_lines == 2 && m_pair_start > 0;
  if (!m_has_end_mark) m_pair_start = m_total;
}

void MEM_ANSWER_TEXT::finish() {
  const std::size_t length = m_has_end_mark ? m_pair_start : m_total;
  m_buffer[std::min(length, m_size - 1)] = '\0';
}
