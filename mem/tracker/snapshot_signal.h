// The signal that asks for a snapshot.
#pragma once

/// What the signal's handler does, which may do nothing that a signal must not interrupt.
struct MEM_SNAPSHOT_REQUESTS {
  bool (*ask)();            ///< tells whether nobody had asked before
  bool (*is_unanswered)();  ///< from before `ask` returns until the snapshot is there
};

/// Handles the signal of that name or number from now on, unless the host does, or it is none that
/// a process can be asked by; then one line on standard error says so.
///
/// A request that has arrived shows as a file, "snapshot.PROCESS.requested", until it is answered:
/// in the report directory, or in the one that is the current one now.
void mem_listen_to_snapshot_signal(char const* name, MEM_SNAPSHOT_REQUESTS requests);

/// A request has been answered: the file goes, unless somebody has asked again.
void mem_settle_snapshot_mark();

/// The run ends. The signal is still caught, and nothing comes of it: it is to end no process.
void mem_stop_listening_to_snapshot_signal();
/// The same in a child made by fork, where the file is the parent's.
void mem_ignore_snapshot_signal_in_child();
/// Listens again, in a child that is followed.
void mem_listen_to_snapshot_signal_in_child();
