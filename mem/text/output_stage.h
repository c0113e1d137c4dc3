// Where formatted characters are collected on their way to the target string.
#pragma once

#include <array>
#include <climits>
#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

/// Appends to the target when full and on flush(). Counts what it took; once the count would leave
/// the range of int it is negative, and nothing more is taken.
class FORMAT_OUTPUT_STAGE {
 public:
  explicit FORMAT_OUTPUT_STAGE(std::string& target) : m_target(target) {}

  void put(char c) {
    if (m_count < 0) return;
    if (m_used == m_text.size()) flush();
    m_text[m_used++] = c;
    m_count = m_count == INT_MAX ? INT_MIN : m_count + 1;
  }
  void put(std::string_view text) {
    for (const char c : text) put(c);
  }
  void put_repeated(char c, std::int64_t times) {
    for (; times > 0 && m_count >= 0; --times) put(c);
  }
  void flush() {
    m_target.append(m_text.data(), m_used);
    m_used = 0;
  }
  int count() const { return m_count; }

 private:
  std::string& m_target;
  std::array<char, 512> m_text;
  std::size_t m_used = 0;
  int m_count = 0;
};
