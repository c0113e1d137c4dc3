// Who becomes the parent of a process whose parent has ended.
#pragma once

/// Whether an orphan is best avoided: this process would adopt it itself, as init of its container
/// or by PR_SET_CHILD_SUBREAPER, or its parent is a host like it, for which that may hold as well,
/// or init is not seen to take care of children that end. For a program that can trace others only
/// the former counts: such a one waits for children of every kind, and an orphan is none.
bool thr_orphans_are_unwelcome();
