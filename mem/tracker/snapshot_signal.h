// The signal that asks for a snapshot.
#pragma once

#include <atomic>

/// Handles the signal of that name ("USR1", "SIGUSR1") or number from now on, unless the host does,
/// or it is none that a process can be asked by; then one line on standard error says so. `ask` is
/// called by the handler, and tells whether nobody had asked before.
///
/// A request that has arrived shows as a file in the directory of the snapshots,
/// "snapshot.PROCESS.requested", until the snapshot is there.
void mem_listen_to_snapshot_signal(char const* name, bool (*ask)());

/// The request has been answered: its file goes, unless somebody `asks_again`.
void mem_unmark_snapshot_request(const std::atomic<bool>& asks_again);

/// The run ends. The signal is still caught, and nothing comes of it: it is to end no process.
void mem_stop_listening_to_snapshot_signal();
/// The same in a child made by fork, where the file is the parent's.
void mem_ignore_snapshot_signal_in_child();
/// Listens again, in a child that is followed.
void mem_listen_to_snapshot_signal_in_child();
