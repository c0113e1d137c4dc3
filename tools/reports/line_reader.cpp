#include "tools/reports/line_reader.h"

#include <istream>
#include <utility>

namespace reports {

namespace {

// What the library writes where memory ran out under a report.
constexpr std::string_view given_up = "MEM: this report is incomplete: ";

std::string incomplete(std::string_view line) {
  return "the report is incomplete: " + std::string(line.substr(given_up.size()));
}

}  // namespace

LINE_READER::LINE_READER(std::istream& in, std::string file_name)
    : m_in(in), m_file_name(std::move(file_name)) {}

bool LINE_READER::fill() {
  constexpr std::size_t piece = 1 << 16;
  m_buffer.erase(0, std::exchange(m_begin, 0));
  const std::size_t kept = m_buffer.size();
  m_buffer.resize(kept + piece);
  m_in.read(m_buffer.data() + kept, piece);
  const auto count = static_cast<std::size_t>(m_in.gcount());
  m_buffer.resize(kept + count);
  m_size += count;
  if (m_in.bad()) fail("it can't be read any further");
  if (m_size > largest_file) fail("the file is larger than 1 GiB");
  return count > 0;
}

std::optional<std::string_view> LINE_READER::next_piece() {
  std::size_t searched = m_begin;
  std::size_t end = std::string::npos;
  while ((end = m_buffer.find('\n', searched)) == std::string::npos) {
    searched = m_buffer.size() - m_begin;
    if (searched > longest_line) {
      ++m_number;
      fail("the line is longer than 1 MiB, as none of a report is");
    }
    if (fill()) continue;
    if (m_buffer.empty()) return std::nullopt;
    ++m_number;
    fail("the report ends in the middle of this line");
  }
  ++m_number;
  const std::string_view line = std::string_view(m_buffer).substr(m_begin, end - m_begin);
  m_begin = end + 1;
  return line;
}

std::optional<std::string_view> LINE_READER::next() {
  const auto line = next_piece();
  if (line && line->starts_with(given_up)) fail(incomplete(*line));
  return line;
}

// A row that is cut is what the mark explains which stands behind it.
std::optional<std::string> LINE_READER::mark_behind() {
  if (std::exchange(m_failing, true)) return std::nullopt;
  try {
    if (const auto line = next_piece(); line && line->starts_with(given_up))
      return incomplete(*line);
  } catch (const UNREADABLE&) {
    // What is told already comes first.
  }
  return std::nullopt;
}

void LINE_READER::fail(std::size_t line, const std::string& what) {
  const auto mark = mark_behind();
  if (mark) line = m_number;
  throw UNREADABLE(m_file_name + (line == 0 ? "" : ":" + std::to_string(line)) + ": " +
                   mark.value_or(what));
}

}  // namespace reports
