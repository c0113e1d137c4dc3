// What to install for a module whose lines are not known.
#pragma once

#include <string>

namespace command {

/// A sentence for the module's file at `path`: the package of its debug information where a package
/// owns the file, how to build it where none does.
std::string how_to_get_lines(const std::string& path);

}  // namespace command
