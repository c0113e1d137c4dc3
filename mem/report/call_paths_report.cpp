// The report of call paths: the tree of callers, and the figures of each path. Its form is
// described in docs/call_paths.md; whoever changes it, changes the number in its first line.
#include <algorithm>
#include <utility>
#include <vector>

#include "mem/bins/user_memory_tracker.h"
#include "mem/report/report_text.h"
#include "mem/report/reports.h"
#include "mem/settings/call_path_settings.h"
#include "mem/symbolizer/build_id_text.h"
#include "mem/symbolizer/module_info.h"

namespace {

constexpr int version = 1;

using ROW = MEM_CALL_PATH_FIGURES::ROW;

// The figures of paths that sites have too.
struct FIGURES {
  std::int64_t current_bytes = 0, peak_bytes = 0;
  std::uint64_t cumulative_bytes = 0;
  std::int32_t current_blocks = 0, peak_blocks = 0;
  std::uint64_t cumulative_blocks = 0;

  bool operator==(const FIGURES&) const = default;

  static FIGURES of(const MEMORY_TRACKER_BASE& site) {
    return {site.current_bytes,
            site.peak_bytes,
            site.cumulative_bytes,
            static_cast<std::int32_t>(site.current_blocks),
            static_cast<std::int32_t>(site.peak_blocks),
            site.cumulative_blocks};
  }
  static FIGURES of(const ROW& path) {
    return {path.current_bytes,  path.peak_bytes,  path.cumulative_bytes,
            path.current_blocks, path.peak_blocks, path.cumulative_blocks};
  }
  void subtract(const FIGURES& other) {
    current_bytes -= other.current_bytes;
    peak_bytes -= other.peak_bytes;
    cumulative_bytes -= other.cumulative_bytes;
    current_blocks -= other.current_blocks;
    peak_blocks -= other.peak_blocks;
    cumulative_blocks -= other.cumulative_blocks;
  }
  void write(MEM_REPORT_TEXT& out) const {
    out << '\t' << current_bytes << '\t' << peak_bytes << '\t' << cumulative_bytes << '\t'
        << current_blocks << '\t' << peak_blocks << '\t' << cumulative_blocks;
  }
};

// The sites that are listed, numbered in their order, and what of their figures no path has.
class NUMBERED_SITES {
 public:
  explicit NUMBERED_SITES(const MEM_SITE_SNAPSHOT& sites) {
    m_numbers.reserve(sites.rows().size());
    m_without_path.reserve(sites.rows().size());
    for (const MEM_SITE_ROW& row : sites.rows()) {
      if (!is_listed(row)) continue;
      m_without_path.push_back(FIGURES::of(row.counters));
      m_numbers.emplace_back(row.site, m_without_path.size());
    }
    std::sort(m_numbers.begin(), m_numbers.end());
  }

  // The catch-all is always there.
  static bool is_listed(const MEM_SITE_ROW& row) {
    return row.is_catch_all() || row.counters.cumulative_bytes != 0;
  }
  // 0 for a path that has nothing to tell: of no listed site, or never used since a reset.
  std::size_t number_of(const ROW& path) const {
    if (path.site == nullptr || FIGURES::of(path) == FIGURES{}) return 0;
    const auto found = std::lower_bound(m_numbers.begin(), m_numbers.end(),
                                        std::make_pair(path.site, std::size_t{0}));
    return found == m_numbers.end() || found->first != path.site ? 0 : found->second;
  }
  void subtract(std::size_t number, const ROW& path) {
    m_without_path[number - 1].subtract(FIGURES::of(path));
  }
  std::size_t count() const { return m_without_path.size(); }
  const FIGURES& without_path(std::size_t number) const { return m_without_path[number - 1]; }

 private:
  template <class T>
  using VECTOR = std::vector<T, MEM_BOOKKEEPING_ALLOCATOR<T>>;
  VECTOR<std::pair<MEM_ADDRESS_TRACKER const*, std::size_t>> m_numbers;
  VECTOR<FIGURES> m_without_path;
};

class REPORT {
 public:
  REPORT(MEM_TEXT_SINK& sink, const MEM_SITE_SNAPSHOT& sites, const MEM_CALL_PATH_FIGURES& paths)
      : m_out(sink), m_sites(sites), m_paths(paths), m_numbers(sites) {
    for (const ROW& row : paths.rows) {
      const std::size_t number = m_numbers.number_of(row);
      if (number == 0) continue;
      m_numbers.subtract(number, row);
      ++m_rows;
      if (mem_call_paths_per_bin) m_bins = std::max(m_bins, row.bin + 1);
    }
    for (std::size_t number = 1; number <= m_numbers.count(); ++number)
      m_rows += m_numbers.without_path(number) == FIGURES{} ? 0 : 1;
  }

  void write() {
    write_settings();
    write_modules();
    write_frames();
    write_sites();
    write_callers();
    write_bins();
    write_paths();
    m_out << "end\t" << m_rows << '\n';
    m_out.flush();
  }

 private:
  // Null where there are no paths.
  static MEM_CALL_PATHS* all() { return mem_call_paths; }
  static void const* hexadecimal(std::uintptr_t number) {
    return reinterpret_cast<void const*>(number);
  }

  void write_settings() {
    m_out << "Call paths\t" << version << "\nsetting\tdepth\t" << mem_call_path_depth
          << "\nsetting\tlimit\t" << mem_call_paths_limit << "\nsetting\tper_bin\t"
          << (mem_call_paths_per_bin ? 1 : 0) << "\nbeyond_limit\t" << m_paths.beyond_limit << '\n';
  }

  void write_modules() {
    m_out << "modules\t" << m_paths.modules << '\n';
    for (std::uint32_t number = 1; number <= m_paths.modules; ++number) {
      const MEM_PATH_MODULE& module = all()->frames().modules()[number];
      char name[65];
      mem_short_module_name(module.path, name);
      m_out << number << '\t' << hexadecimal(module.begin) << '\t' << module.end - module.begin
            << '\t' << MEM_BUILD_ID_TEXT(module.identity).text() << '\t' << name << '\t'
            << module.path << '\n';
    }
  }

  void write_frames() {
    m_out << "frames\t" << m_paths.frames << '\n';
    for (std::uint32_t number = 1; number <= m_paths.frames; ++number) {
      const MEM_PATH_FRAME& frame = all()->frames().frames()[number];
      const std::uintptr_t bias =
          frame.module == 0 ? 0 : all()->frames().modules()[frame.module].bias;
      m_out << number << '\t' << frame.module << '\t' << hexadecimal(frame.address() - bias)
            << '\n';
    }
  }

  void write_sites() {
    m_out << "sites\t" << m_numbers.count() << '\n';
    std::size_t number = 0;
    for (const MEM_SITE_ROW& row : m_sites.rows()) {
      if (!NUMBERED_SITES::is_listed(row)) continue;
      const MEM_ADDRESS_INFO& info = row.info();
      m_out << ++number << '\t';
      if (row.is_catch_all())
        m_out << "OTHER";
      else
        m_out << row.address;
      m_out << '\t' << info.module_name_buffer << '\t' << info.file_name_buffer << '\t' << info.line
            << '\t' << info.function_name_buffer;
      FIGURES::of(row.counters).write(m_out);
      m_out << '\n';
    }
  }

  void write_callers() {
    m_out << "callers\t" << m_paths.nodes << '\n';
    for (std::uint32_t number = 1; number <= m_paths.nodes; ++number) {
      const MEM_PATH_NODE& node = all()->nodes()[number];
      m_out << number << '\t' << node.caller << '\t' << node.frame << '\n';
    }
  }

  void write_bins() {
    const MEM_USER_MEMORY_TRACKER::IN_USE names;
    m_out << "bins\t" << m_bins << '\n';
    for (std::uint32_t id = 0; id < m_bins; ++id)
      m_out << id + 1 << '\t' << MEM_USER_MEMORY_TRACKER::pbin_id_to_string(id) << '\n';
  }

  void write_paths() {
    m_out << "paths\t" << m_rows << '\n';
    for (const ROW& row : m_paths.rows) {
      const std::size_t site = m_numbers.number_of(row);
      if (site == 0) continue;
      m_out << row.node << '\t' << site << '\t' << (mem_call_paths_per_bin ? row.bin + 1 : 0);
      FIGURES::of(row).write(m_out);
      m_out << '\t' << row.temporary_blocks << '\n';
    }
    for (std::size_t site = 1; site <= m_numbers.count(); ++site) {
      const FIGURES& rest = m_numbers.without_path(site);
      if (rest == FIGURES{}) continue;
      m_out << "0\t" << site << "\t0";
      rest.write(m_out);
      m_out << "\t0\n";
    }
  }

  MEM_REPORT_TEXT m_out;
  const MEM_SITE_SNAPSHOT& m_sites;
  const MEM_CALL_PATH_FIGURES& m_paths;
  NUMBERED_SITES m_numbers;
  std::size_t m_rows = 0;
  std::uint32_t m_bins = 0;
};

}  // namespace

void mem_write_call_paths(MEM_TEXT_SINK& sink, const MEM_SITE_SNAPSHOT& sites,
                          const MEM_CALL_PATH_FIGURES& paths) {
  REPORT(sink, sites, paths).write();
}
