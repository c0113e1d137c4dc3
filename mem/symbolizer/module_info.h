// Which module a code address lies in, as the dynamic loader and the module's file tell it.
#pragma once

#include "include/tuk_mem.h"

/// What the addr2line symbolizers answer to MEM_SYMBOLIZER::get_module_info.
bool mem_get_module_info(void const* address, MEM_ADDRESS_INFO& info);

/// The short module name of a path: the file name without a leading "lib" and without ".so" and
/// what follows, cut to 64 characters. True when the path has a ".so".
bool mem_short_module_name(char const* path, char (&name)[65]);

/// How the addresses of a module are to be given to a tool that reads its file.
struct MEM_MODULE_FILE {
  int e_type;                  ///< ELF object type; 3 is a shared object or a PIE
  std::uintptr_t loader_base;  ///< where the loader put it; only kept for type 3 without a base

  /// Reads the type from the file at info.module_path. Internal error of `source` when the file
  /// cannot be read. Takes none of the loader's locks.
  static MEM_MODULE_FILE read(const MEM_ADDRESS_INFO& info, char const* source);

  /// The address inside the file for a run-time address of the module.
  std::uintptr_t file_address(const MEM_ADDRESS_INFO& info) const;
};
