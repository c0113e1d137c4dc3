// Where the library's files go. Relies on platform, mem/base and mem/host, like everything in this
// folder.
#pragma once

#include "mem/base/part.h"

/// The directory that was asked for, absolute and without links; null where none was, or it can't
/// be written into: then files go to the current directory of the moment. It is made at start-up
/// when something is tracked from then on, else here. Any thread.
char const* mem_report_directory();

/// The same before it is made: nothing is done for the answer, which a signal handler may ask for.
char const* mem_wanted_report_directory();

/// Whether a parent and a child that both write reports would write the same files.
bool mem_processes_share_report_directory();

/// Reads the setting, and says on standard error when it can't be obeyed.
extern const MEM_PART mem_report_directory_part;
