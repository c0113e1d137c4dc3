#include <set>
#include <string_view>
#include <tuple>

#include "mem/base/bookkeeping.h"
#include "mem/records/site_snapshot.h"
#include "mem/report/report_text.h"
#include "mem/report/reports.h"

namespace {

bool was_charged(const MEM_SITE_ROW& row) {
  return !row.site->filtered && !row.is_catch_all() && row.counters.cumulative_bytes != 0;
}

// One row per module file: name, base and path. The texts are the snapshot's.
using MODULE_FILE = std::tuple<std::string_view, void const*, std::string_view>;
using MODULE_FILES = std::set<MODULE_FILE, std::less<>, MEM_BOOKKEEPING_ALLOCATOR<MODULE_FILE>>;

// A host's own symbolizer may know a name and no path.
std::string_view path_of(const MEM_ADDRESS_INFO& info) {
  return info.module_path == nullptr ? std::string_view() : info.module_path;
}

MODULE_FILES files_of(const MEM_SITE_SNAPSHOT& sites) {
  MODULE_FILES files;
  for (const MEM_SITE_ROW& row : sites.rows())
    if (was_charged(row))
      files.emplace(row.info().module_name_buffer, row.info().module_base, path_of(row.info()));
  return files;
}

}  // namespace

void mem_write_base_addresses(MEM_TEXT_SINK& sink, const MEM_SITE_SNAPSHOT& sites) {
  MEM_REPORT_TEXT out(sink);
  out << "\"base address\",\"module\",\"dll_path\"\n";
  for (const auto& [name, base, path] : files_of(sites))
    out << '"' << base << "\",\"" << name << "\",\"" << path << "\"\n";
  out.flush();
}
