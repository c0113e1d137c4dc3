// Which module a code address lies in, and how a tool that reads the module's file is to be given
// the address.
#pragma once

#include "include/tuk_mem.h"

/// What the addr2line symbolizers answer to MEM_SYMBOLIZER::get_module_info. The record's path is
/// that of a MEM_MODULE_FILE.
bool mem_get_module_info(void const* address, MEM_ADDRESS_INFO& info);

/// The short module name of a path: the file name without a leading "lib" and without ".so" and
/// what follows, cut to 64 characters. True when the path has a ".so".
bool mem_short_module_name(char const* path, char (&name)[65]);

/// The address inside the module's file, of ELF type `e_type`, for a run-time address.
std::uintptr_t mem_file_address(const MEM_ADDRESS_INFO& info, int e_type);
