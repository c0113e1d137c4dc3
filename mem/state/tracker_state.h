// Where the tracker stands in its life, and the tag that names its reports.
#pragma once

#include <string>

/// Set once initialisation has run; never cleared.
extern bool mem_tbb_tracker_inited;

/// Set by the shutdown, inside the cat section: whoever enters the cat-and-mouse lock after that
/// finds it set and leaves the records alone, so that cleanup may free them.
extern bool mem_tbb_tracking_ended;

/// The executable tag; null before initialisation and after cleanup.
extern std::string* mem_tbb_exe_string;

inline bool mem_tbb_tracker_is_inited() { return mem_tbb_tracker_inited; }
