// Switching the hooks of a debugging aid on and off, from any thread. Relies on mem/unwind,
// mem/base, mem/state and mem/output, like everything in this folder.
#pragma once

/// The hooks of one aid are in place or they are not; the allocator would take the same hook twice,
/// and every block would be handled twice. One switch at a time, in the whole process.
class MEM_HOOK_SWITCH {
 public:
  /// Calls `change` if the hooks are not as wanted yet.
  void turn(bool on, void (*change)(bool on));

 private:
  bool m_is_on = false;
};

/// In a child made by fork: whoever was switching may be gone.
void mem_abandon_hook_switches();
