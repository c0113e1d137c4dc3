// All parts of the tracker's state: the one list that every turn of its life walks.
#pragma once

#include "mem/base/part.h"

/// Brings every part up, in the order of the list; a part may rely on those before it. An exception
/// of one passes on.
void mem_create_parts(MEM_TRACKING_GRANULARITY granularity);

/// Forgets what was recorded, in the order of the list. Inside the cat section: nobody sees the
/// steps.
void mem_reset_parts();

/// Gives all memory back, the other way round: no part outlives one it relies on. Inside the cat
/// section, once tracking has ended.
void mem_free_parts();

/// Lets go of everything, in a child made by fork.
void mem_abandon_parts();

/// Brings every part up again in a child that is tracked.
void mem_follow_parts(MEM_TRACKING_GRANULARITY granularity);
