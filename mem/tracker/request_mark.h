// The file that shows a request for a snapshot. Signal handlers make and remove it.
#pragma once

/// Fixes where it is, in this process: before the first of the other calls.
void mem_place_request_mark();

/// Reaches its directory without following links, by a descriptor that is closed again: where none
/// is to be had nothing is done. Makes the directory, if it is the report directory of a child.
void mem_make_request_mark();
void mem_remove_request_mark();
