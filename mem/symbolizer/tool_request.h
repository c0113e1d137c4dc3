// What the symbolizers do around a request to a module's tool, the same for both.
#pragma once

#include "mem/symbolizer/addr2line_tool.h"
#include "mem/symbolizer/module_file.h"
#include "mem/symbolizer/symbolizer.h"

/// The file to ask about an address of the record's module; null when there is no use in asking,
/// with the reason said, once for a file, and `answer` set. Hold no lock.
MEM_MODULE_FILE* mem_file_to_ask(const MEM_ADDRESS_INFO& info, MEM_SYMBOL_ANSWER& answer);

/// What a request came to, of which the record got its line or not. Says what there is to be said
/// of the file's tool, and once, after several answers without a line, what may be missing. Hold no
/// lock.
MEM_SYMBOL_ANSWER mem_conclude(const MEM_TOOL_OUTCOME& outcome, MEM_MODULE_FILE& file,
                               const MEM_ADDRESS_INFO& info, bool tool_reads_split = false);
