// tuk-mem-symbols: tells processes of one user what their addresses mean.
#include <fcntl.h>
#include <signal.h>
#include <sys/resource.h>
#include <unistd.h>

#include <charconv>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <exception>
#include <optional>
#include <string>
#include <string_view>

#include "tools/symbols/server/server.h"

namespace {

constexpr char usage[] =
    "Usage: tuk-mem-symbols --socket PATH [--remove-directory] [--memory BYTES]\n"
    "       tuk-mem-symbols --connected [--memory BYTES]\n"
    "\n"
    "Tells the functions, files and lines of addresses in executables and shared objects.\n"
    "\n"
    "Options:\n"
    "  --socket PATH    listen there, in a directory that only you may enter, until the last\n"
    "                   client has gone; for 10 seconds until the first one comes\n"
    "  --remove-directory  at the end, that of the socket\n"
    "  --connected      serve the one client at the other end of standard input\n"
    "  --memory BYTES   drop what was used least recently beyond this (1073741824)\n";

struct OPTIONS {
  std::string socket;
  bool is_connected = false;
  bool removes_directory = false;
  std::uint64_t memory = std::uint64_t{1} << 30;
};

std::optional<std::uint64_t> number_of(std::string_view text) {
  std::uint64_t number = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
  if (error != std::errc{} || end != text.data() + text.size()) return std::nullopt;
  return number;
}

std::optional<OPTIONS> options_of(int count, char** arguments) {
  OPTIONS options;
  for (int i = 1; i < count; ++i) {
    const std::string_view option(arguments[i]);
    if (option == "--connected") {
      options.is_connected = true;
    } else if (option == "--remove-directory") {
      options.removes_directory = true;
    } else if (option == "--socket" && i + 1 < count) {
      options.socket = arguments[++i];
    } else if (option == "--memory" && i + 1 < count) {
      const auto memory = number_of(arguments[++i]);
      if (!memory) return std::nullopt;
      options.memory = *memory;
    } else {
      return std::nullopt;
    }
  }
  if (options.is_connected == !options.socket.empty()) return std::nullopt;
  return options;
}

// The clients' terminal is not ours to be ended by.
void ignore_signals() {
  for (const int number : {SIGPIPE, SIGINT, SIGHUP, SIGQUIT}) signal(number, SIG_IGN);
}

void use_all_descriptors() {
  rlimit limit{};
  getrlimit(RLIMIT_NOFILE, &limit);
  limit.rlim_cur = limit.rlim_max;
  setrlimit(RLIMIT_NOFILE, &limit);
}

// Somebody may wait for the end of whoever has the other end of these.
void let_go_of_output() {
  const symbols::DESCRIPTOR nowhere(open("/dev/null", O_RDWR | O_CLOEXEC));
  dup2(nowhere.number(), STDOUT_FILENO);
  dup2(nowhere.number(), STDERR_FILENO);
}

int serve(const OPTIONS& options) {
  symbols::SERVER server(options.memory);
  if (options.is_connected) {
    const int socket = fcntl(STDIN_FILENO, F_DUPFD_CLOEXEC, STDERR_FILENO + 1);
    let_go_of_output();
    dup2(STDOUT_FILENO, STDIN_FILENO);
    return server.serve(symbols::DESCRIPTOR(socket)) ? EXIT_SUCCESS : EXIT_FAILURE;
  }
  symbols::LISTENER listener(options.socket);
  let_go_of_output();
  if (chdir("/") != 0) return EXIT_FAILURE;
  server.serve(listener);
  if (options.removes_directory) listener.remove_directory();
  return EXIT_SUCCESS;
}

}  // namespace

int main(int count, char** arguments) {
  if (count == 2 && std::strcmp(arguments[1], "--help") == 0) {
    std::fputs(usage, stdout);
    return EXIT_SUCCESS;
  }
  const std::optional<OPTIONS> options = options_of(count, arguments);
  if (!options) {
    std::fputs(usage, stderr);
    return 2;
  }
  ignore_signals();
  use_all_descriptors();
  unsetenv("DEBUGINFOD_URLS");  // what is not on this machine is not waited for
  try {
    const int status = serve(*options);
    symbols::WORKER::await_ended();
    return status;
  } catch (const std::exception& error) {
    std::fprintf(stderr, "tuk-mem-symbols: %s\n", error.what());
    return EXIT_FAILURE;
  }
}
