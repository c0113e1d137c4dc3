// Profile bins as the host opens and closes them.
#pragma once

class MEM_USER_MEMORY_TRACKER {
 public:
  /// Summary bins are on.
  static bool s_tbb_track_user_memory;
  /// Every block is charged to its bin and tag.
  static bool s_tbb_track_user_memory_per_bin_detailed;
};
