#include "tools/command/run/debug_packages.h"

#include <fcntl.h>
#include <fmt/core.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <filesystem>
#include <initializer_list>
#include <vector>

namespace command {

namespace {

// What a program writes to its standard output; empty when it is not there or fails.
std::string output_of(std::initializer_list<char const*> words) {
  std::array<int, 2> ends{};
  if (pipe2(ends.data(), O_CLOEXEC) != 0) return {};
  std::vector<char*> arguments;
  for (char const* const word : words) arguments.push_back(const_cast<char*>(word));
  arguments.push_back(nullptr);
  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  posix_spawn_file_actions_adddup2(&actions, ends[1], STDOUT_FILENO);
  posix_spawn_file_actions_addopen(&actions, STDERR_FILENO, "/dev/null", O_WRONLY, 0);
  pid_t process = -1;
  const bool runs =
      posix_spawnp(&process, arguments[0], &actions, nullptr, arguments.data(), environ) == 0;
  posix_spawn_file_actions_destroy(&actions);
  close(ends[1]);
  std::string text;
  std::array<char, 1024> piece;
  for (ssize_t count = 0; runs && (count = read(ends[0], piece.data(), piece.size())) > 0;)
    text.append(piece.data(), static_cast<std::size_t>(count));
  close(ends[0]);
  int status = 0;
  if (runs) waitpid(process, &status, 0);
  return status == 0 ? text : std::string();
}

// Of Debian's packages; empty for none. A file of /usr/lib may be known as one of /lib.
std::string package_of(const std::string& path) {
  std::error_code trouble;
  const std::string file = std::filesystem::canonical(path, trouble).string();
  if (trouble) return {};
  std::string answer = output_of({"dpkg-query", "-S", file.c_str()});
  if (answer.empty() && file.starts_with("/usr/"))
    answer = output_of({"dpkg-query", "-S", file.c_str() + sizeof "/usr" - 1});
  return answer.substr(0, answer.find(':'));
}

}  // namespace

std::string how_to_get_lines(const std::string& path) {
  const std::string package = package_of(path);
  if (package.empty()) return "build it with -g";
  if (package == "libc6") return "install libc6-dbg";
  return fmt::format("install {}-dbgsym, or fetch it with debuginfod-find", package);
}

}  // namespace command
