// Reading the inlining symbolizer's answers.
#pragma once

#include <vector>

#include "include/tuk_mem.h"

/// Pairs of a function and a location line, innermost first: the first pair into `info`, each
/// further one that has both a function and a file into `inlined`, as a copy of `info` with these.
/// What the tool did not know stays empty.
void mem_parse_inlined_answer(char const* text, MEM_ADDRESS_INFO& info,
                              std::vector<MEM_ADDRESS_INFO>& inlined);
