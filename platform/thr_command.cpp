#include "platform/thr_command.h"

#include <sys/auxv.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <string_view>

namespace {

// A process with any of these is profiled, and starts children of its own.
constexpr std::string_view switches[] = {"KORVANE_MEM_", "MEM_LEAK_TRACKING_IN_VX_MODE="};
constexpr std::string_view preload = "LD_PRELOAD=";

constexpr char system_path[] = "PATH=/usr/bin:/bin";

bool is_secure() { return getauxval(AT_SECURE) != 0; }

// The directories that are searched, as in PATH.
std::string_view search_path() {
  const std::string_view of_the_system = std::string_view(system_path).substr(sizeof "PATH");
  char const* path = is_secure() ? nullptr : std::getenv("PATH");
  return path == nullptr ? of_the_system : std::string_view(path);
}

bool is_switch(std::string_view variable) {
  return std::any_of(std::begin(switches), std::end(switches),
                     [&](std::string_view name) { return variable.starts_with(name); });
}

bool would_profile(std::string_view variable) {
  return variable.starts_with(preload) || is_switch(variable);
}

// Calls `take` with each variable of the child's environment.
template <class TAKE>
void for_each_variable(TAKE take) {
  if (is_secure()) return take(const_cast<char*>(system_path));
  for (char** variable = environ; variable != nullptr && *variable != nullptr; ++variable)
    if (!would_profile(*variable)) take(*variable);
}

std::size_t count_variables() {
  std::size_t count = 0;
  for_each_variable([&](char*) { ++count; });
  return count;
}

// Cuts the next word off the command; its text goes to `out`, which moves behind its terminator.
bool cut_word(char const*& command, char*& out) {
  while (*command == ' ') ++command;
  if (*command == '\0') return false;
  for (; *command != '\0' && *command != ' '; ++command) {
    if (*command == '\\' && command[1] != '\0') ++command;
    *out++ = *command;
  }
  *out++ = '\0';
  return true;
}

char* joined(std::string_view directory, std::string_view program, THR_ROOM& room) {
  char* file = room.take<char>(directory.size() + program.size() + 2);
  char* end = std::copy(directory.begin(), directory.end(), file);
  if (!directory.empty()) *end++ = '/';
  std::copy(program.begin(), program.end(), end);
  return file;
}

std::size_t count_directories(std::string_view path) {
  return static_cast<std::size_t>(std::count(path.begin(), path.end(), ':')) + 1;
}

char** possible_files(std::string_view program, THR_ROOM& room) {
  const std::string_view path = search_path();
  char** files = room.take<char*>(count_directories(path) + 1);
  if (program.find('/') != std::string_view::npos) {
    files[0] = joined({}, program, room);
    return files;
  }
  char** next = files;
  for (std::size_t start = 0; start <= path.size();) {
    const std::size_t end = std::min(path.find(':', start), path.size());
    *next++ = joined(path.substr(start, end - start), program, room);
    start = end + 1;
  }
  return files;
}

}  // namespace

// Generous: every list and text is counted as if it were the longest possible.
std::size_t thr_room_for_command(char const* command) {
  const std::size_t length = std::strlen(command) + 2;
  const std::string_view path = search_path();
  const std::size_t directories = count_directories(path) + 1;
  return length * (1 + sizeof(char*)) + path.size() + directories * (length + 2 * sizeof(char*)) +
         (count_variables() + 2) * sizeof(char*) + 64;
}

bool thr_read_command(char const* command, THR_ROOM& room, THR_COMMAND& result) {
  const std::size_t length = std::strlen(command) + 2;
  char* text = room.take<char>(length);
  result.words = room.take<char*>(length);
  char** word = result.words;
  for (char* start = text; cut_word(command, text); start = text) *word++ = start;
  if (word == result.words) return false;
  result.files = possible_files(result.words[0], room);

  const std::size_t most = count_variables();
  result.environment = room.take<char*>(most + 1);
  std::size_t count = 0;
  for_each_variable([&](char* variable) {
    if (count < most) result.environment[count++] = variable;
  });
  return true;
}

bool thr_environment_profiles(std::string_view environment) {
  while (!environment.empty()) {
    const std::string_view variable = environment.substr(0, environment.find('\0'));
    if (is_switch(variable)) return true;
    environment.remove_prefix(std::min(variable.size() + 1, environment.size()));
  }
  return false;
}
