#include "mem/records/site_snapshot.h"
#include "mem/report/report_text.h"
#include "mem/report/reports.h"

namespace {

void write_row(MEM_REPORT_TEXT& out, const MEM_ADDRESS_INFO& info) {
  out << '"' << info.address << "\",\"" << info.module_name_buffer << "\",\""
      << info.function_name_buffer << "\",\"";
  if (*info.file_name_buffer != '\0') out << info.file_name_buffer << ':' << info.line;
  out << "\"\n";
}

}  // namespace

void mem_write_filtered_addresses(MEM_TEXT_SINK& sink, const MEM_SITE_SNAPSHOT& sites) {
  MEM_REPORT_TEXT out(sink);
  out << "\"PC\",\"module\",\"function\",\"fileline\"\n";
  for (const MEM_SITE_ROW& row : sites.rows())
    if (row.site->filtered) write_row(out, row.info());
  out.flush();
}
