// Parts of the run file.
#pragma once

#include <string_view>

class MEM_REPORT_TEXT;

/// A text with a tab, a line break and a backslash as \t, \n and \\.
void mem_write_run_value(MEM_REPORT_TEXT& out, std::string_view text);

/// A line for each module that is loaded, by address. Asks the kernel for what is mapped: another
/// thread may hold the loader's lock and wait for this one.
void mem_write_run_modules(MEM_REPORT_TEXT& out);
