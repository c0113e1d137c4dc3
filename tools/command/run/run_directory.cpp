#include "tools/command/run/run_directory.h"

#include <fmt/chrono.h>
#include <fmt/format.h>
#include <sys/wait.h>

#include <cerrno>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <nlohmann/json.hpp>

#include "tools/command/failure.h"

namespace fs = std::filesystem;

namespace command {

std::string program_name(const RUN_OPTIONS& options) {
  return fs::path(options.command.front()).filename().string();
}

std::string make_run_directory(const RUN_OPTIONS& options, pid_t pid) try {
  const fs::path path = options.directory.empty()
                            ? fs::path(fmt::format("tuk-mem.{}.{}", program_name(options), pid))
                            : fs::path(options.directory);
  fs::create_directories(path);
  if (!fs::is_empty(path))
    throw FAILURE(FAILURE::own,
                  fmt::format("{}: holds something already; name a new directory", path.string()));
  return fs::absolute(path).lexically_normal().string();
} catch (const fs::filesystem_error& error) {
  throw FAILURE(FAILURE::own,
                fmt::format("{}: {}", error.path1().string(), error.code().message()));
}

std::string write_filters(const RUN_OPTIONS& options, const PROFILER_FILES& files,
                          const std::string& directory) {
  const bool wants_installed = options.runtime_filters && !files.filters.empty();
  if (!wants_installed && options.filters.empty()) return {};
  std::string path = directory + "/filters";
  std::ofstream out(path, std::ios::binary);
  if (wants_installed) out << std::ifstream(files.filters, std::ios::binary).rdbuf();
  if (!options.filters.empty()) {
    std::ifstream user(options.filters, std::ios::binary);
    if (!user)
      throw FAILURE(FAILURE::own, fmt::format("{}: {}", options.filters, std::strerror(errno)));
    if (user.peek() != std::ifstream::traits_type::eof()) out << '\n' << user.rdbuf();
  }
  if (!out.flush())
    throw FAILURE(FAILURE::own,
                  fmt::format("{}: can't be written: {}", path, std::strerror(errno)));
  return path;
}

// A directory that the user named stays: it may have been there.
void empty_run_directory(const RUN_OPTIONS& options, const std::string& directory) {
  std::error_code trouble;
  for (char const* const name : {"filters", "run.json"})
    fs::remove(fs::path(directory) / name, trouble);
  if (options.directory.empty()) fs::remove(directory, trouble);
}

bool write_run_facts(const RUN_OPTIONS& options, const RUN_FACTS& facts,
                     const std::string& directory) {
  nlohmann::ordered_json json;
  json["format"] = "tuk-mem run 1";
  json["command"] = options.command;
  json["pid"] = facts.pid;
  json["start"] = facts.start;
  if (facts.status != -1) {
    json["seconds"] = facts.seconds;
    if (WIFEXITED(facts.status)) json["exit_status"] = WEXITSTATUS(facts.status);
    if (WIFSIGNALED(facts.status)) json["signal"] = WTERMSIG(facts.status);
  }
  std::ofstream file(directory + "/run.json");
  file << json.dump(2, ' ', false, nlohmann::json::error_handler_t::replace) << '\n';
  return static_cast<bool>(file.flush());
}

}  // namespace command
