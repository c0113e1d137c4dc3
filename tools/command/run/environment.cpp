#include "tools/command/run/environment.h"

#include <fmt/core.h>
#include <unistd.h>

#include <map>
#include <string_view>

#include "tools/command/failure.h"

namespace command {

namespace {

class ENVIRONMENT {
 public:
  ENVIRONMENT() {
    for (char** entry = environ; *entry != nullptr; ++entry) {
      const std::string_view text = *entry;
      const std::size_t equals = text.find('=');
      if (equals != std::string_view::npos)
        m_values.emplace(text.substr(0, equals), text.substr(equals + 1));
    }
  }

  void set(char const* name, const std::string& value) { m_values[name] = value; }
  void set_switch(char const* name, bool is_on) {
    if (is_on)
      set(name, "1");
    else
      m_values.erase(name);
  }
  std::string value(char const* name) const {
    const auto found = m_values.find(name);
    return found == m_values.end() ? std::string() : found->second;
  }

  std::vector<std::string> entries() const {
    std::vector<std::string> result;
    result.reserve(m_values.size());
    for (const auto& [name, value] : m_values) {
      result.push_back(name);
      result.back().append("=").append(value);
    }
    return result;
  }

 private:
  std::map<std::string, std::string, std::less<>> m_values;
};

// The loader takes blanks and colons for the ends of paths.
const std::string& preloadable(const std::string& path) {
  if (path.find_first_of(" :") != std::string::npos)
    throw FAILURE(FAILURE::own, fmt::format("{}: a library with a blank or colon in its path can't "
                                            "be preloaded; install it elsewhere",
                                            path));
  return path;
}

void preload(ENVIRONMENT& environment, const RUN_OPTIONS& options, const PROFILER_FILES& files) {
  const bool tcmalloc = options.allocator == ALLOCATOR::tcmalloc;
  const std::string former = environment.value("LD_PRELOAD");
  const std::string list = preloadable(files.library) + ':' +
                           preloadable(tcmalloc ? find_hooked_allocator() : files.malloc);
  environment.set("LD_PRELOAD", former.empty() ? list : list + ':' + former);
  // Its own way to walk stacks writes to a pipe that a program may have closed.
  if (tcmalloc) environment.set("TCMALLOC_STACKTRACE_METHOD", "libgcc");
}

void ask_for_tracking(ENVIRONMENT& environment, const RUN_OPTIONS& options) {
  environment.set_switch("KORVANE_MEM_PROFILE_ALL", false);
  environment.set_switch("KORVANE_MEM_PROFILE_PER_FILELINE", options.lines);
  environment.set_switch("KORVANE_MEM_PROFILE_PER_LIBRARY", options.modules);
  environment.set_switch("KORVANE_MEM_CHECK_LEAKS", options.leaks);
  environment.set_switch("KORVANE_MEM_PROFILE_AUXILIARY_TIMELINE", options.process);
  environment.set_switch("KORVANE_MEM_PROFILE_PER_BIN", options.bins);
  environment.set_switch("KORVANE_MEM_PROFILE_BIN_TAG_PLOT", options.bins);
  environment.set_switch("KORVANE_MEM_PROFILE_CALL_PATHS", options.call_paths);
  environment.set_switch("KORVANE_MEM_FOLLOW_FORK", options.children);
  if (options.call_path_depth != 0)
    environment.set("mem_call_path_depth", std::to_string(options.call_path_depth));
  if (options.call_paths_per_bin) environment.set("mem_call_paths_per_bin", "on");
  environment.set("KORVANE_MEM_PROFILE_FILELINE_PEAK_SNAPSHOT_THRESHOLD",
                  std::to_string(options.peak_step));
  if (options.sample_every != 0)
    environment.set("KORVANE_MEM_PROFILE_LIBRARY_SNAPSHOT_PERIOD",
                    std::to_string(options.sample_every));
}

void ask_for_snapshots(ENVIRONMENT& environment, const RUN_OPTIONS& options) {
  environment.set("KORVANE_MEM_SNAPSHOT_SIGNAL", options.snapshot_signal);
  if (options.snapshot_every != 0)
    environment.set("KORVANE_MEM_SNAPSHOT_INTERVAL", std::to_string(options.snapshot_every));
}

void ask_for_symbols(ENVIRONMENT& environment, const PROFILER_FILES& files,
                     const std::string& socket) {
  if (files.symbols.empty()) return;
  environment.set("KORVANE_MEM_SYMBOLIZER", "server");
  if (!socket.empty()) environment.set("KORVANE_MEM_SYMBOL_SERVER", socket);
}

}  // namespace

// A % of the user's stands for itself.
std::string report_directory(const std::string& directory) {
  std::string text;
  for (const char c : directory) text += c == '%' ? "%%" : std::string(1, c);
  return text + "/%e.%p";
}

std::vector<std::string> profiled_environment(const RUN_OPTIONS& options,
                                              const PROFILER_FILES& files,
                                              const RUN_PLACES& places) {
  ENVIRONMENT environment;
  preload(environment, options, files);
  ask_for_tracking(environment, options);
  ask_for_snapshots(environment, options);
  ask_for_symbols(environment, files, places.socket);
  environment.set("KORVANE_MEM_REPORT_DIRECTORY", report_directory(places.directory));
  environment.set("mem_profile_with_incomplete_fileline_info", "on");
  if (!places.filters.empty()) environment.set("mem_user_defined_filters_file", places.filters);
  if (!options.only.empty()) environment.set("mem_only_profile_single_executable", options.only);
  return environment.entries();
}

}  // namespace command
