// Collecting a tool's answer from the pieces it comes in, and knowing its end.
#pragma once

#include <cstddef>
#include <string_view>

/// Asked for no address of a file, a tool has nothing to say: its answer marks the end of the one
/// before. A known function without a line is answered by "??:?", so nothing else looks like it.
inline constexpr std::string_view mem_end_mark_request = "ffffffffffffffff\n";
inline constexpr std::string_view mem_end_mark = "??\n??:0\n";

/// The text is kept up to the buffer's length; all of it is looked at.
class MEM_ANSWER_TEXT {
 public:
  MEM_ANSWER_TEXT(char* buffer, std::size_t size) : m_buffer(buffer), m_size(size) {}

  void take(std::string_view piece);

  /// Whether an end mark has come behind at least one pair of lines.
  bool has_end_mark() const { return m_has_end_mark; }
  std::size_t lines() const { return m_lines; }
  /// Whether what has come so far, something, ends in a line end.
  bool ends_a_line() const { return m_total > 0 && m_line_length == 0; }
  /// Whether nothing but one end mark has come.
  bool is_end_mark() const { return m_total == mem_end_mark.size() && m_mark_lines == 2; }

  /// Terminates the text and takes the end mark off.
  void finish();

 private:
  void take_character(char c);
  void end_line();

  static constexpr std::size_t head_size = 8;  // longer than any line of a mark

  char* m_buffer;
  std::size_t m_size;
  std::size_t m_total = 0;       // characters, kept or not
  std::size_t m_pair_start = 0;  // where the pair of lines that is coming begins
  std::size_t m_lines = 0;
  char m_line_head[head_size]{};
  std::size_t m_line_length = 0;
  int m_mark_lines = 0;  // how many lines of a mark the current pair consists of
  bool m_has_end_mark = false;
};
