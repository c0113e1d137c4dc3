// Which frames of an allocation's stack say nothing about who asked for the memory. Relies on
// platform, mem/base, mem/modules, mem/unwind, mem/host, mem/state, mem/settings, mem/symbolizer
// and mem/records, like everything in this folder.
#pragma once

#include "include/tuk_mem.h"

/// Whether every frame of this module is left out; an address in no module has the name "".
bool mem_module_is_rejected(char const* module_name);

/// Whether a frame is left out for its function or its source file.
bool mem_frame_is_rejected(const MEM_ADDRESS_INFO& frame);
