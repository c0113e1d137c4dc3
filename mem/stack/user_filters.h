// The user's own frame filters: prefixes read once from a text file.
#pragma once

#include <vector>

#include "mem/base/bookkeeping.h"
#include "mem/base/part.h"

using MEM_USER_FILTERS =
    std::vector<MEM_BOOKKEEPING_STRING, MEM_BOOKKEEPING_ALLOCATOR<MEM_BOOKKEEPING_STRING>>;

/// Created empty during initialisation and filled before any allocation is tracked; read without
/// a lock and never freed: threads may still classify a frame while the process ends.
extern MEM_USER_FILTERS* mem_user_filters_modules;
extern MEM_USER_FILTERS* mem_user_filters_functions;
extern MEM_USER_FILTERS* mem_user_filters_files;

/// Their life: read when the tracker comes up to track something, and never changed.
extern const MEM_PART mem_user_filters_part;

/// Reads the file named by the setting "mem_user_defined_filters_file", one directive a line:
/// "filter_module", "filter_file_basename" or "filter_function", a prefix, and perhaps "#" and a
/// comment. Bad lines are reported on the debug channel and skipped.
void mem_read_user_filters();
