// Who adds a path, or takes some out, does so alone.
#pragma once

#include "mem/base/spin_lock.h"

/// Guards the table of call paths against others that change it, and the peaks that a flush has
/// kept. Those who look for paths do without.
using MEM_CALL_PATHS_LOCK = MEM_SPIN_LOCK<MEM_LOCK_ORDER::CALL_PATHS>;
extern MEM_CALL_PATHS_LOCK mem_call_paths_lock;
