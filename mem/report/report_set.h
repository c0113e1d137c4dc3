// The whole set of reports, whenever it is written.
#pragma once

#include "mem/report/report_figures.h"
#include "mem/report/report_file.h"

/// How a leak summary names the process; may throw std::bad_alloc.
using MEM_PROCESS_NAME = MEM_BOOKKEEPING_STRING (*)();

/// Each writes its part of the set. A file that can't be written, or for which memory runs out,
/// keeps no other back.
void mem_write_site_reports(MEM_REPORT_PLACE place, MEM_REPORT_FIGURES& figures);
void mem_write_call_path_report(MEM_REPORT_PLACE place, MEM_REPORT_FIGURES& figures);
void mem_write_auxiliary_report(MEM_REPORT_PLACE place, MEM_REPORT_FIGURES& figures);
void mem_write_module_reports(MEM_REPORT_PLACE place, MEM_REPORT_FIGURES& figures);
void mem_write_bin_reports(MEM_REPORT_PLACE place, MEM_REPORT_FIGURES& figures);
void mem_write_leak_report(MEM_REPORT_PLACE place, MEM_REPORT_FIGURES& figures,
                           MEM_PROCESS_NAME process_name);
void mem_write_filters_report(MEM_REPORT_PLACE place, MEM_REPORT_FIGURES& figures);
/// Beside the reports, when these go to a directory of their own. Not inside the tracker's lock:
/// the process's modules are looked at.
void mem_write_run_report(MEM_REPORT_PLACE place, const MEM_REPORTS_WANTED& wanted,
                          char const* ended);
