// Where in the timelines of its process a snapshot was taken.
#pragma once

#include <cstddef>
#include <optional>
#include <string>

namespace reports {

/// The number of samples before the snapshot in that folder; none when it has no timeline.
std::optional<std::size_t> samples_before_snapshot(const std::string& folder,
                                                   const std::string& tag);

}  // namespace reports
