// What is recorded of call paths, beside whether.
#pragma once

#include <cstdint>

inline constexpr int mem_most_call_path_depth = 250;

/// Frames of a path, from its site's outward; 1 to 250.
extern int mem_call_path_depth;
/// Paths, beyond which new ones have no figures of their own.
extern std::uint64_t mem_call_paths_limit;
/// Whether a path is another one in another bin.
extern bool mem_call_paths_per_bin;

/// Reads the three once, before paths are first tracked. As mem_read_snapshot_settings; what is out
/// of range is reported and becomes the nearest that is not.
void mem_read_call_path_settings();
