#include "tests/integration/tracked_program.h"

std::vector<std::string> allocator() {
  const char* const chosen = std::getenv("ALLOCATOR");
  return chosen == nullptr ? std::vector<std::string>{TCMALLOC_LIBRARY} : split(chosen, ' ');
}

bool allocator_is(const std::string& part_of_name) {
  return allocator().back().find(part_of_name) != std::string::npos;
}

ENVIRONMENT with_symbolizer(ENVIRONMENT environment) {
  constexpr const char* name = "KORVANE_MEM_SYMBOLIZER";
  if (const char* const chosen = std::getenv(name)) environment.emplace(name, chosen);
  return environment;
}

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
  for (const auto& [where, figures] : books)
    for (const auto& [column, figure] : figures) {
      std::int64_t sum = 0;
      int rows = 0;
      for (const REPORT::ROW& row : fileline.rows) {
        if (place(row.text("File"), row.text("Line")) != where) continue;
        sum += row.number(column);
        ++rows;
      }
      if (rows == 1 || !column.starts_with("Max")) {
        EXPECT_EQ(sum, figure) << column << " of " << where << ", rows: " << rows;
      }
    }
}
