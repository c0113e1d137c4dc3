// The executable tag, which names the reports.
#pragma once

#include <atomic>

#include "mem/base/part.h"

/// Null before initialisation, "kvi" then, until the host sets another; empty after cleanup. Its
/// text stays: whoever has asked for it may read it at any time.
extern std::atomic<char const*> mem_tbb_exe_string;

extern const MEM_PART mem_report_tag_part;
