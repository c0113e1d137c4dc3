// The records of all modules, by name.
#pragma once

#include <oneapi/tbb/spin_mutex.h>

#include <map>

#include "include/tuk_mem.h"
#include "mem/base/bookkeeping.h"

/// Ordered by plain byte comparison; looked up by any text without copying it.
using MEM_MODULE_TRACKER_MAP = std::map<
    MEM_BOOKKEEPING_STRING, MEMORY_TRACKER_BASE, std::less<>,
    MEM_BOOKKEEPING_ALLOCATOR<std::pair<const MEM_BOOKKEEPING_STRING, MEMORY_TRACKER_BASE>>>;

/// From initialisation to cleanup.
extern MEM_MODULE_TRACKER_MAP* mem_module_tracker_map;

/// Guards the module map, the records in it and the sites' links to them.
extern tbb::spin_mutex& mem_module_tracker_lock;

/// Held while a report reads the module timeline.
extern tbb::spin_mutex& mem_module_timeline_lock;

/// Drops the map as it is and frees both locks, in a child made by fork.
void mem_abandon_modules();

/// The module that holds what belongs to no known one.
inline constexpr char const* mem_other_module = "OTHER";

/// The record of the site's module, found or created by name at its first use and linked then.
/// Hold mem_module_tracker_lock.
MEMORY_TRACKER_BASE& mem_module_of(MEM_ADDRESS_TRACKER& site);
