#include "mem/records/site_snapshot.h"
#include "mem/report/report_text.h"
#include "mem/report/shutdown_reports.h"

namespace {

bool was_filtered(void const*, const MEM_ADDRESS_TRACKER& site) { return site.filtered; }

void write_row(MEM_REPORT_TEXT& out, const MEM_ADDRESS_INFO& info) {
  out << '"' << info.address << "\",\"" << info.module_name_buffer << "\",\""
      << info.function_name_buffer << "\",\"";
  if (*info.file_name_buffer != '\0') out << info.file_name_buffer << ':' << info.line;
  out << "\"\n";
}

}  // namespace

void mem_write_filtered_addresses(std::ostream& stream) {
  const MEM_SITE_SNAPSHOT sites(was_filtered);
  MEM_REPORT_TEXT out(stream);
  out << "\"PC\",\"module\",\"function\",\"fileline\"\n";
  for (const MEM_SITE_ROW& row : sites.rows()) write_row(out, *row.info);
  out.flush();
}
