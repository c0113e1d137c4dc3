// Tables on a terminal.
#pragma once

#include <string>
#include <vector>

namespace command {

class OUTPUT;

/// Figures stand to the right, texts to the left. Two columns are two blanks apart.
class TEXT_TABLE {
 public:
  enum class COLUMN { FIGURE, TEXT };

  void add_column(std::string heading, COLUMN kind);
  /// As many cells as there are columns; texts are printable.
  void add_row(std::vector<std::string> cells) { m_rows.push_back(std::move(cells)); }

  /// No line is wider than `width`, unless that is 0, if the longest texts can be shortened so far.
  void print(OUTPUT& out, std::size_t width) const;

 private:
  std::vector<std::size_t> widths(std::size_t width) const;
  void print_row(OUTPUT& out, const std::vector<std::string>& cells,
                 const std::vector<std::size_t>& widths) const;

  std::vector<std::string> m_headings;
  std::vector<COLUMN> m_kinds;
  std::vector<std::vector<std::string>> m_rows;
};

}  // namespace command
