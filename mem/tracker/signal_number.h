// Signals by their names.
#pragma once

/// The number of a signal that is called by its name or number: "USR1", "SIGUSR1", "10", "RTMIN+3",
/// "RTMAX-1", in any case of letters. 0 for none.
int mem_signal_number(char const* name);
