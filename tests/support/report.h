// Reading a tab-separated report back: title, empty line, header, rows, timing line.
#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <vector>

class REPORT {
 public:
  /// A row: its cells by column title. Throws std::out_of_range when there is no such column.
  struct ROW {
    const std::string& text(const std::string& column) const { return cells.at(column); }
    std::int64_t number(const std::string& column) const { return std::stoll(text(column)); }
    std::map<std::string, std::string> cells;
  };

  explicit REPORT(const std::string& text);

  std::string title;
  std::vector<std::string> header;
  std::vector<ROW> rows;

  /// The only row whose `column` is `value`; throws when there is none or there are several.
  const ROW& row(const std::string& column, const std::string& value) const;
  /// The cells of a column.
  std::vector<std::string> column(const std::string& name) const;
  /// The sum of a column over the rows whose `key` is `value`, or over all.
  std::int64_t sum(const std::string& column, const std::string& key = "",
                   const std::string& value = "") const;
};

/// The parts of `text` between `separator`s.
std::vector<std::string> split(const std::string& text, char separator);
