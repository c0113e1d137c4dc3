// The tags of open summary bins as timeline labels.
#pragma once

#include <string>

#include "mem/base/part.h"

/// Makes a tag the timeline label, or brings the enclosing one back. Nothing for an empty tag,
/// without library tracking, or once the host has disabled labels by tags. For the host's main
/// thread.
void mem_open_bin_label(const std::string& tag);
void mem_close_bin_label(const std::string& tag);

/// Forgets which tags are labels.
void mem_clear_bin_labels();

extern const MEM_PART mem_bin_labels_part;
