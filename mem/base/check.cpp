#include "mem/base/check.h"

#include "platform/err_report.h"

void mem_check_failed(const char* condition, const char* source, int line) {
  err_report_internal_error(condition, "MEM", source, line);
}
