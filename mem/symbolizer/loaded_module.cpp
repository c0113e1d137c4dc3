#include "mem/symbolizer/loaded_module.h"

#include <dlfcn.h>
#include <link.h>

bool MEM_LOADED_MODULE::find(void const* address) {
  dl_find_object found;
  if (_dl_find_object(const_cast<void*>(address), &found) != 0) return false;
  map = found.dlfo_link_map;
  name = map->l_name;
  start = found.dlfo_map_start;
  bias = map->l_addr;
  return true;
}
