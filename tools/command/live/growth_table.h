// Which lines of a running program grow.
#pragma once

#include <sys/types.h>

namespace command {

struct TOP_OPTIONS {
  pid_t process = 0;
  unsigned seconds = 2;  ///< between two rounds
  unsigned rounds = 0;   ///< 0: until the process ends
  unsigned rows = 0;     ///< 0: as many as the terminal has
};

/// Shows a table on standard output, over the former one on a terminal. Returns the exit status.
/// Throws FAILURE.
int show_growth(const TOP_OPTIONS& options);

}  // namespace command
