#include "tools/reports/snapshot_samples.h"

#include <algorithm>
#include <array>
#include <filesystem>
#include <fstream>

namespace reports {

namespace {

// Names with line breaks in them would be counted twice: a mark is a bit late then.
std::size_t lines_in(std::ifstream& in) {
  std::array<char, 65536> buffer{};
  std::size_t lines = 0;
  while (in.read(buffer.data(), buffer.size()) || in.gcount() > 0)
    lines += static_cast<std::size_t>(std::count(buffer.data(), buffer.data() + in.gcount(), '\n'));
  return lines;
}

}  // namespace

// The lines of a timeline are counted instead of read: there may be hundreds of snapshots.
std::optional<std::size_t> samples_before_snapshot(const std::string& folder,
                                                   const std::string& tag) {
  // Title, blank line and headings; the snapshot's own sample, the timing line and a blank one.
  constexpr std::size_t other_lines = 6;
  for (char const* const prefix : {"mem_tbb_timeline.", "mem_tbb_pbin_tag_timeline."}) {
    const std::string name = prefix + tag + ".log";
    std::ifstream in(std::filesystem::path(folder) / name, std::ios::binary);
    if (!in) continue;
    const std::size_t lines = lines_in(in);
    return lines < other_lines ? 0 : lines - other_lines;
  }
  return std::nullopt;
}

}  // namespace reports
