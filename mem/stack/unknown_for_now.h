// Addresses that could not be symbolized for want of something that may come back.
#pragma once

#include <chrono>

/// For how long an address that is unknown for now is not asked for again. In between it is taken
/// as filtered, without a record: the blocks go to the next frame. Tests shorten it.
extern std::chrono::milliseconds mem_unknown_address_rest;

/// Whether the address was noted less than the rest ago, or so many were that all others rest too.
/// Hold mem_trace_lock.
bool mem_is_unknown_for_now(void const* address);

/// Hold mem_trace_lock.
void mem_note_unknown_for_now(void const* address);
