// Addresses that could not be symbolized for want of something that may come back.
#pragma once

#include <chrono>

/// For how long an address that is unknown for now is not asked for again, nor any of its module
/// when several are. In between it is taken as filtered, without a record: the blocks go to the
/// next frame. Tests shorten it.
extern std::chrono::milliseconds mem_unknown_address_rest;

/// Whether the address rests, or its module, or so many modules do that all others rest too. Hold
/// mem_trace_lock.
bool mem_is_unknown_for_now(void const* address);

/// The address rests from now on. Hold mem_trace_lock.
void mem_note_unknown_for_now(void const* address);
