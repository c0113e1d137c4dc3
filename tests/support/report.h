// Reading a tab-separated report back: title, empty line, header, rows, timing line.
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <vector>

class REPORT {
 public:
  /// A row: its cells by column title.
  class ROW {
   public:
    ROW(std::shared_ptr<const std::vector<std::string>> header, std::vector<std::string> cells)
        : m_header(std::move(header)), m_cells(std::move(cells)) {}
    /// Throws std::out_of_range, naming the column, when there is none or the row is too short.
    const std::string& text(const std::string& column) const;
    std::int64_t number(const std::string& column) const;
    std::size_t cells() const { return m_cells.size(); }

   private:
    std::shared_ptr<const std::vector<std::string>> m_header;
    std::vector<std::string> m_cells;
  };

  /// `header_line` counts from 0; rows end at the timing line or the end of the text.
  explicit REPORT(const std::string& text, std::size_t header_line = 2);

  const std::string& title() const { return m_title; }
  const std::vector<std::string>& header() const { return *m_header; }
  const std::vector<ROW>& rows() const { return m_rows; }
  const std::string& timing() const { return m_timing; }

  /// The only row whose `column` is `value`; throws when there is none or there are several.
  const ROW& row(const std::string& column, const std::string& value) const;
  /// The sum of a column over the rows that `wanted` picks.
  std::int64_t sum(
      const std::string& column,
      const std::function<bool(const ROW&)>& wanted = [](const ROW&) { return true; }) const;

 private:
  std::string m_title;
  std::shared_ptr<const std::vector<std::string>> m_header;
  std::vector<ROW> m_rows;
  std::string m_timing;
};

/// The parts of `text` between `separator`s.
std::vector<std::string> split(const std::string& text, char separator);
