// The lines of a report, and what is said of one that is damaged.
#pragma once

#include <iosfwd>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>

namespace reports {

/// An input that can't be read as a report. what() is one sentence that names the file, the line
/// where there is one, and what is wrong.
class UNREADABLE : public std::runtime_error {
  using std::runtime_error::runtime_error;
};

/// Holds one line at a time, of at most `longest_line` bytes, and stops at `largest_file`: noise
/// can't fill the memory.
class LINE_READER {
 public:
  static constexpr std::size_t longest_line = std::size_t{1} << 20;
  static constexpr std::size_t largest_file = std::size_t{1} << 30;

  LINE_READER(std::istream& in, std::string file_name);

  /// Without its line break; good until the next one is asked for. Fails in a last line without
  /// one, since every report ends in a line break, and at the mark of a report that was given up.
  std::optional<std::string_view> next();
  /// Of the line read last, from 1.
  std::size_t number() const { return m_number; }
  const std::string& file_name() const { return m_file_name; }

  /// Throws UNREADABLE for that line, or for the line read last.
  [[noreturn]] void fail(std::size_t line, const std::string& what);
  [[noreturn]] void fail(const std::string& what) { fail(m_number, what); }

 private:
  std::optional<std::string_view> next_piece();
  bool fill();
  std::optional<std::string> mark_behind();

  std::istream& m_in;
  std::string m_file_name;
  std::string m_buffer;
  std::size_t m_begin = 0;
  std::size_t m_number = 0;
  std::size_t m_size = 0;
  bool m_failing = false;
};

}  // namespace reports
