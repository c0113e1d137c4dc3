// Taking one sample of the timelines.
#pragma once

#include <cstdint>

/// What an event that takes a sample records beside the module timeline and the tag snapshots: the
/// labels and the process's figures, as the granularity says. Outside the tracker's lock.
void mem_capture_companions(std::uint32_t granularity);
