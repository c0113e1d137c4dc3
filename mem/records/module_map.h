// The records of all modules, by name.
#pragma once

#include <map>

#include "include/tuk_mem.h"
#include "mem/base/bookkeeping.h"
#include "mem/base/part.h"
#include "mem/base/spin_lock.h"

/// Ordered by plain byte comparison; looked up by any text without copying it.
using MEM_MODULE_TRACKER_MAP = std::map<
    MEM_BOOKKEEPING_STRING, MEMORY_TRACKER_BASE, std::less<>,
    MEM_BOOKKEEPING_ALLOCATOR<std::pair<const MEM_BOOKKEEPING_STRING, MEMORY_TRACKER_BASE>>>;

/// From initialisation to cleanup.
extern MEM_MODULE_TRACKER_MAP* mem_module_tracker_map;
extern const MEM_PART mem_module_map_part;

/// Guards the module map, the records in it and the sites' links to them.
using MEM_MODULE_LOCK = MEM_SPIN_LOCK<MEM_LOCK_ORDER::MODULES>;
extern MEM_MODULE_LOCK mem_module_tracker_lock;

/// Held while a report reads the module timeline.
using MEM_TIMELINE_READER_LOCK = MEM_SPIN_LOCK<MEM_LOCK_ORDER::TIMELINE_READER>;
extern MEM_TIMELINE_READER_LOCK mem_module_timeline_lock;

/// The module that holds what belongs to no known one.
inline constexpr char const* mem_other_module = "OTHER";

/// The record of the site's module, found or created by name at its first use and linked then.
/// Hold mem_module_tracker_lock.
MEMORY_TRACKER_BASE& mem_module_of(MEM_ADDRESS_TRACKER& site);
