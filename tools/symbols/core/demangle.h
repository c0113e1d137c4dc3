// Names as people write them.
#pragma once

#include <string>

namespace symbols {

/// The function that a linker symbol stands for, with its parameters; the symbol itself when it
/// is no language's.
std::string demangled(char const* symbol);

}  // namespace symbols
