// Flags of the library's own start and end.
#pragma once

#include <atomic>

/// True keeps every MEM_INITIALIZER from doing its work. Nothing in the library sets it.
extern bool mem_dll_was_dynamically_loaded;

/// Set only while the last MEM_INITIALIZER takes the critical section down.
extern bool mem_exiting;

/// The setting "debug_msg" as start-up found it.
extern bool mem_pgo_debug;

/// Set when the last MEM_INITIALIZER is destroyed: the process ends by exit, or main has returned.
extern std::atomic<bool> mem_process_is_ending;
