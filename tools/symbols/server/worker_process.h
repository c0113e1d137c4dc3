// What runs in a worker's process.
#pragma once

#include "tools/symbols/server/worker.h"

namespace symbols {

/// Messages, each as a whole: to the worker up to WORKER::most_asked addresses; from it, for each
/// of them in order, the address and its answer; or a REFUSAL, and then its end.
constexpr std::size_t longest_message = std::size_t{100} * 1024;

/// Answers until the other end of the socket is closed. Descriptors other than the two may be
/// anybody's: they are closed.
[[noreturn]] void run_worker(int socket, const WORKER::JOB& job);

}  // namespace symbols
