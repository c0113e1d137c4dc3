#include "tests/integration/tracked_program.h"

#include <gtest/gtest.h>

#include <vector>

namespace {

const std::vector<std::string> summed_columns = {"Current bytes",
                                                 "Cumulative bytes",
                                                 "Cumulative requested bytes",
                                                 "Cumulative mismatched bytes",
                                                 "Current blocks",
                                                 "Cumulative blocks"};
const std::vector<std::string> maximum_columns = {"Max bytes", "Max blocks"};

}  // namespace

std::string place(const std::string& file, const std::string& line) {
  return file.substr(file.rfind('/') + 1) + ":" + line;
}

BOOKS books_of(const RUN& run) {
  BOOKS books;
  for (const std::string& line : split(run.out(), '\n')) {
    const std::vector<std::string> cells = split(line, '\t');
    if (cells[0] != "site") continue;
    std::size_t cell = 3;
    for (const char* column :
         {"Current bytes", "Max bytes", "Cumulative bytes", "Cumulative requested bytes",
          "Cumulative mismatched bytes", "Current blocks", "Max blocks", "Cumulative blocks"})
      books[place(cells.at(1), cells.at(2))][column] = std::stoll(cells.at(cell++));
  }
  return books;
}

void expect_books(const REPORT& fileline, const BOOKS& books) {
  for (const auto& [where, figures] : books) {
    std::vector<const REPORT::ROW*> rows;
    for (const REPORT::ROW& row : fileline.rows())
      if (place(row.text("File"), row.text("Line")) == where) rows.push_back(&row);
    EXPECT_FALSE(rows.empty()) << where << " has no row";
    for (const std::string& column : summed_columns) {
      std::int64_t sum = 0;
      for (const REPORT::ROW* row : rows) sum += row->number(column);
      EXPECT_EQ(sum, figures.at(column)) << column << " of " << where;
    }
    if (rows.size() != 1) continue;
    for (const std::string& column : maximum_columns)
      EXPECT_EQ(rows[0]->number(column), figures.at(column)) << column << " of " << where;
  }
}
