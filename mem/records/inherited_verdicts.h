// What the parent of a child made by fork had found out of code addresses: the child's books are
// empty, but what an address stands for is the same.
#pragma once

#include "mem/records/site_map.h"

/// Goes on with the parent's records, besides what that one had from its own; null where somebody
/// may have been changing them. In the child, before it has records of its own.
void mem_inherit_verdicts(MEM_ADDRESS_TRACKER_MAP const* records);

/// The parent's record of an address; null where it had none. Hold mem_trace_lock.
MEM_ADDRESS_TRACKER const* mem_inherited_verdict(void const* address);

/// A module has been removed: another may come to its place. Hold mem_trace_lock.
void mem_forget_inherited_verdicts();
