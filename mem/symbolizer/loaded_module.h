// What the dynamic loader knows of a module, asked without its lock: a thread inside dlopen holds
// that while constructors run, which may wait for others that allocate.
#pragma once

#include <cstdint>

struct link_map;

struct MEM_LOADED_MODULE {
  char const* name = nullptr;  ///< the loader's text; empty for the executable
  void* start = nullptr;       ///< where its first segment begins
  std::uintptr_t bias = 0;     ///< its addresses less those of its file
  const link_map* map = nullptr;

  /// False for an address in no module.
  bool find(void const* address);
};
