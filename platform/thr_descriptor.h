// Descriptors that are out of the host's way and certainly ours.
// A host may close any descriptor it did not open, and open its own at the same number. So ours
// take high numbers, and each is known by the file it stood for when it was taken: what stands
// there now is looked at before every use. A host thread that closes one between the look and the
// use can't be noticed.
#pragma once

#include <cstdint>

/// Moves a descriptor of a pipe or socket to the highest free number, closed on exec, at most 1023
/// so that the kernel's table need not grow for it, and within the upper quarter of what the
/// process may have: the rest is the host's. `former` is closed in any case. Returns the number, or
/// -1 when there is none. Any thread.
int thr_take_descriptor(int former);

/// Whether the number was taken and what stands there now is something else, or nothing.
bool thr_descriptor_is_lost(int descriptor);

/// Closes the descriptor, unless it is lost, which is then known to its taker and forgotten.
void thr_give_up_descriptor(int descriptor);

/// In a child made by fork: closes its copies of all that its parent had taken.
void thr_give_up_all_descriptors();
