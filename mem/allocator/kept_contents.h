// Which blocks a fill pattern must leave alone: their contents are the program's already when the
// allocator calls a hook.
#pragma once

/// Finds the allocator's realloc and calloc. Not in a hook.
void mem_find_keeping_functions();

/// Whether the hook with this frame (__builtin_frame_address(0)) was called by realloc, which tells
/// of a block that it keeps in place as of a released and a new one, or by calloc, which tells of
/// it zeroed.
bool mem_contents_are_kept(void const* hooks_frame);
