#include "mem/base/lifecycle.h"

constinit bool mem_dll_was_dynamically_loaded = false;
constinit bool mem_exiting = false;
constinit bool mem_pgo_debug = false;
constinit std::atomic<bool> mem_process_is_ending = false;
