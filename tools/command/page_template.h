// The page that was built of web/, in two pieces: the data stand between them.
#pragma once

#include <string_view>

namespace command {

extern const std::string_view page_before_data;
extern const std::string_view page_behind_data;

}  // namespace command
