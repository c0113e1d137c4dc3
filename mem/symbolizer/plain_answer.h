// Reading the plain symbolizer's answers.
#pragma once

#include "include/tuk_mem.h"

/// "function, newline, location, newline" into the record. False when the tool did not know the
/// function.
bool mem_parse_plain_answer(char const* text, MEM_ADDRESS_INFO& info);
