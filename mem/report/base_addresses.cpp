#include <map>
#include <string_view>

#include "mem/base/bookkeeping.h"
#include "mem/records/site_snapshot.h"
#include "mem/report/report_text.h"
#include "mem/report/shutdown_reports.h"

namespace {

bool was_charged(void const* address, const MEM_ADDRESS_TRACKER& site) {
  return !site.filtered && address != nullptr && site.cumulative_bytes != 0;
}

struct MODULE_PLACE {
  std::string_view name;
  void const* base;

  auto operator<=>(const MODULE_PLACE&) const = default;
};

// By name, and by base and path where two files have one name.
using MODULE_FILES = std::map<
    std::pair<MODULE_PLACE, std::string_view>, bool, std::less<>,
    MEM_BOOKKEEPING_ALLOCATOR<std::pair<const std::pair<MODULE_PLACE, std::string_view>, bool>>>;

MODULE_FILES files_of(const MEM_SITE_SNAPSHOT& sites) {
  MODULE_FILES files;
  for (const MEM_SITE_ROW& row : sites.rows())
    files[{{row.info->module_name_buffer, row.info->module_base}, row.info->module_path}] = true;
  return files;
}

}  // namespace

void mem_write_base_addresses(std::ostream& stream) {
  const MEM_SITE_SNAPSHOT sites(was_charged);
  MEM_REPORT_TEXT out(stream);
  out << "\"base address\",\"module\",\"dll_path\"\n";
  for (const auto& [file, present] : files_of(sites))
    out << '"' << file.first.base << "\",\"" << file.first.name << "\",\"" << file.second << "\"\n";
  out.flush();
}
