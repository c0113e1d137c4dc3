// A child made by fork without exec.
#pragma once

/// Registers the fork handler, once per process. The child has tracking off for good and writes no
/// report: its threads are gone, and whatever they were changing is left alone. The parent goes on
/// untouched.
void mem_register_fork_handlers();

/// The first thing of the library's end, where one takes time: keeps the C library's list of
/// handlers from being shorter than a thread that is about to fork takes it for.
void mem_pad_fork_handlers();
