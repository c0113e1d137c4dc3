#include "tools/command/run/program_file.h"

#include <elf.h>
#include <fmt/core.h>
#include <sys/stat.h>
#include <sys/xattr.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <optional>
#include <sstream>
#include <string_view>

#include "tools/command/failure.h"
#include "tools/command/run/dynamic_symbols.h"

namespace command {

namespace {

bool is_program(const std::string& path) {
  struct stat status {};
  return stat(path.c_str(), &status) == 0 && S_ISREG(status.st_mode) &&
         access(path.c_str(), X_OK) == 0;
}

[[noreturn]] void can_not_run(const std::string& path, const std::string& why) {
  throw FAILURE(FAILURE::not_runnable, fmt::format("{}: {}", path, why));
}

// As execvp searches: the first that can be executed; else whether one was there at all.
std::string search_path(const std::string& name) {
  char const* const variable = std::getenv("PATH");
  const std::string_view directories(variable == nullptr ? "/bin:/usr/bin" : variable);
  bool was_refused = false;
  for (std::size_t begin = 0; begin <= directories.size();) {
    const std::size_t end = std::min(directories.find(':', begin), directories.size());
    // An empty one is the current directory, also behind the last colon.
    const std::string_view directory = begin == end ? "." : directories.substr(begin, end - begin);
    std::string path = fmt::format("{}/{}", directory, name);
    if (is_program(path)) return path;
    was_refused = was_refused || access(path.c_str(), F_OK) == 0;
    begin = end + 1;
  }
  if (was_refused) can_not_run(name, std::strerror(EACCES));
  throw FAILURE(FAILURE::not_found, fmt::format("{}: command not found", name));
}

std::string located(const std::string& name) {
  if (!name.empty() && name.find('/') == std::string::npos) return search_path(name);
  if (is_program(name)) return name;
  struct stat status {};
  if (stat(name.c_str(), &status) != 0)
    throw FAILURE(errno == ENOENT || errno == ENOTDIR ? FAILURE::not_found : FAILURE::not_runnable,
                  fmt::format("{}: {}", name, std::strerror(errno)));
  can_not_run(name, S_ISDIR(status.st_mode) ? "Is a directory" : std::strerror(EACCES));
}

// The interpreter that a script names in its first line.
std::optional<std::string> interpreter(std::istream& file) {
  std::array<char, 2> mark{};
  if (!file.read(mark.data(), mark.size()) || mark != std::array{'#', '!'}) return std::nullopt;
  std::string line;
  std::getline(file, line);
  std::istringstream words(line);
  std::string first;
  std::string second;
  words >> first >> second;
  const bool is_env = std::filesystem::path(first).filename() == "env";
  const bool is_name = !second.empty() && second[0] != '-' && second.find('=') == std::string::npos;
  return is_env && is_name ? second : first;
}

void check_rights(const std::string& path) {
  struct stat status {};
  if (stat(path.c_str(), &status) != 0 || geteuid() == 0) return;
  const bool changes_user = (status.st_mode & S_ISUID) != 0 && status.st_uid != geteuid();
  const bool changes_group = (status.st_mode & S_ISGID) != 0 && status.st_gid != getegid();
  if (changes_user || changes_group)
    can_not_run(path,
                "runs with other rights than yours (set-user-ID or set-group-ID), and loads "
                "no profiler; run it as its owner");
  if (getxattr(path.c_str(), "security.capability", nullptr, 0) > 0)
    can_not_run(path, "has file capabilities, and loads no profiler; run a copy of it, or as root");
}

bool names_an_interpreter(std::istream& file, const Elf64_Ehdr& header) {
  for (unsigned number = 0; number < header.e_phnum; ++number) {
    Elf64_Phdr segment{};
    file.seekg(static_cast<std::streamoff>(header.e_phoff + number * sizeof segment));
    if (!file.read(reinterpret_cast<char*>(&segment), sizeof segment)) return false;
    if (segment.p_type == PT_INTERP) return true;
  }
  return false;
}

// Their runtimes would end the program: the one wants to be loaded first, the other takes what the
// profiler writes for uninitialized.
bool is_of_a_strict_sanitizer(std::string_view symbol) {
  return symbol == "__asan_init" || symbol == "__msan_init";
}

// False for what is none: the shell's.
bool check_elf(std::istream& file, const std::string& path) {
  Elf64_Ehdr header{};
  file.clear();
  file.seekg(0);
  if (!file.read(reinterpret_cast<char*>(&header), sizeof header) ||
      std::memcmp(static_cast<unsigned char*>(header.e_ident), ELFMAG, SELFMAG) != 0)
    return false;
  if (header.e_ident[EI_CLASS] != ELFCLASS64 || header.e_machine != EM_X86_64)
    can_not_run(path, "is not a program for 64-bit x86, the only one that can be profiled");
  if (!names_an_interpreter(file, header))
    can_not_run(path, "is linked statically, and loads no profiler; link it dynamically");
  if (has_dynamic_symbol(path, is_of_a_strict_sanitizer))
    can_not_run(path,
                "is built with AddressSanitizer or MemorySanitizer, which can't be profiled; build "
                "it without");
  return true;
}

std::string name_without_links(const std::string& path) {
  std::error_code trouble;
  return std::filesystem::canonical(path, trouble).filename().string();
}

// The base name of what runs.
std::string check(const std::string& path, int depth) {
  constexpr int as_deep_as_the_kernel_goes = 4;
  check_rights(path);
  std::ifstream file(path, std::ios::binary);
  if (file) {  // else it may be executed all the same
    const std::optional<std::string> script_for = interpreter(file);
    if (script_for && depth < as_deep_as_the_kernel_goes && !script_for->empty())
      return check(located(*script_for), depth + 1);
    if (!script_for && !check_elf(file, path)) return name_without_links("/bin/sh");
  }
  return name_without_links(path);
}

}  // namespace

PROGRAM_FILE find_program(const std::string& name) {
  const std::string path = located(name);
  return {path, check(path, 0)};
}

}  // namespace command
