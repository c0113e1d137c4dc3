// What a report must cost at the least: reads the rows of a fileline report, then sorts them by
// their peak bytes and prints them, and says how many seconds that took.
//   bare_report report output
#include <algorithm>
#include <array>
#include <chrono>
#include <cstdint>
#include <cstdio>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

namespace {

constexpr std::size_t counters = 10;
constexpr std::size_t peak_bytes = 2;

struct ROW {
  std::string address;
  std::array<std::int64_t, counters> counter{};
  std::string source;  // module, file, line and function
};

std::vector<ROW> read_rows(char const* report) {
  std::ifstream in(report);
  std::vector<ROW> rows;
  for (std::string line; std::getline(in, line);) {
    std::istringstream fields(line);
    ROW row;
    std::getline(fields, row.address, '\t');
    for (std::int64_t& counter : row.counter) fields >> counter;
    if (fields && std::getline(fields.ignore(), row.source)) rows.push_back(std::move(row));
  }
  return rows;
}

void write_rows(std::vector<ROW>& rows, char const* output) {
  std::sort(rows.begin(), rows.end(), [](const ROW& a, const ROW& b) {
    return a.counter[peak_bytes] > b.counter[peak_bytes];
  });
  std::ofstream out(output);
  for (const ROW& row : rows) {
    out << row.address;
    for (const std::int64_t counter : row.counter) out << '\t' << counter;
    out << '\t' << row.source << '\n';
  }
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 3) return 2;
  std::vector<ROW> rows = read_rows(argv[1]);
  const auto begin = std::chrono::steady_clock::now();
  write_rows(rows, argv[2]);
  const std::chrono::duration<double> elapsed = std::chrono::steady_clock::now() - begin;
  std::printf("%.6f %zu\n", elapsed.count(), rows.size());
}
