// Counting accounted events, every so many of which a sample is due.
#pragma once

/// Counts an event; whether it is one that takes a sample: its number, from 0, is a multiple of the
/// period. Outside the tracker's lock.
bool mem_count_event();

/// Counts one that takes none, whatever its number is.
void mem_count_event_unsampled();
