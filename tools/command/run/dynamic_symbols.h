// The names that a program takes from its libraries or offers them.
#pragma once

#include <functional>
#include <string>
#include <string_view>

namespace command {

/// Whether one of them is as wanted. False for a file that can't be read as an ELF file.
bool has_dynamic_symbol(const std::string& path,
                        const std::function<bool(std::string_view)>& wanted);

}  // namespace command
