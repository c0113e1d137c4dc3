#include <set>
#include <string_view>
#include <tuple>

#include "mem/base/bookkeeping.h"
#include "mem/records/site_snapshot.h"
#include "mem/report/report_text.h"
#include "mem/report/shutdown_reports.h"

namespace {

bool was_charged(void const* address, const MEM_ADDRESS_TRACKER& site) {
  return !site.filtered && address != nullptr && site.cumulative_bytes != 0;
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
    files.emplace(row.info->module_name_buffer, row.info->module_base, path_of(*row.info));
  return files;
}

}  // namespace

void mem_write_base_addresses(std::ostream& stream) {
  const MEM_SITE_SNAPSHOT sites(was_charged);
  MEM_REPORT_TEXT out(stream);
  out << "\"base address\",\"module\",\"dll_path\"\n";
  for (const auto& [name, base, path] : files_of(sites))
    out << '"' << base << "\",\"" << name << "\",\"" << path << "\"\n";
  out.flush();
}
