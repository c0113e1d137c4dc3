#include "mem/report/report_text.h"

#include <algorithm>
#include <cstdint>
#include <ostream>

void MEM_STREAM_SINK::write(std::string_view piece) {
  m_stream.write(piece.data(), static_cast<std::streamsize>(piece.size()));
}

void MEM_STREAM_SINK::flush() { m_stream.flush(); }

MEM_REPORT_TEXT& MEM_REPORT_TEXT::operator<<(std::string_view text) {
  while (!text.empty()) {
    if (m_size == m_buffer.size()) hand_over();
    const std::size_t piece = std::min(text.size(), m_buffer.size() - m_size);
    std::copy_n(text.data(), piece, m_buffer.data() + m_size);
    m_size += piece;
    text.remove_prefix(piece);
  }
  return *this;
}

MEM_REPORT_TEXT& MEM_REPORT_TEXT::operator<<(double number) {
  constexpr int significant_digits = 6;
  char digits[32];
  return append(digits, std::to_chars(digits, digits + sizeof digits, number,
                                      std::chars_format::general, significant_digits)
                            .ptr);
}

MEM_REPORT_TEXT& MEM_REPORT_TEXT::operator<<(void const* address) {
  constexpr int hexadecimal = 16;
  char digits[24];
  char const* const end = std::to_chars(digits, digits + sizeof digits,
                                        reinterpret_cast<std::uintptr_t>(address), hexadecimal)
                              .ptr;
  if (address != nullptr) *this << "0x";
  return append(digits, end);
}

MEM_REPORT_TEXT& MEM_REPORT_TEXT::fixed(double number, int digits) {
  char text[352];  // the largest double has 309 digits before the point
  return append(
      text, std::to_chars(text, text + sizeof text, number, std::chars_format::fixed, digits).ptr);
}

void MEM_REPORT_TEXT::flush() {
  hand_over();
  m_out.flush();
}

void MEM_REPORT_TEXT::hand_over() {
  m_out.write({m_buffer.data(), m_size});
  m_size = 0;
}
