#include "tools/command/run/profiler_files.h"

#include <fmt/core.h>

#include <cstdlib>
#include <filesystem>
#include <initializer_list>
#include <sstream>
#include <vector>

#include "tools/command/failure.h"

namespace fs = std::filesystem;

namespace command {

namespace {

fs::path own_directory() {
  std::error_code trouble;
  const fs::path self = fs::read_symlink("/proc/self/exe", trouble);
  if (trouble) throw FAILURE(FAILURE::own, fmt::format("/proc/self/exe: {}", trouble.message()));
  return self.parent_path();
}

// The first that is there; empty for none.
std::string first_of(std::initializer_list<fs::path> candidates) {
  std::error_code trouble;
  for (const fs::path& path : candidates)
    if (fs::exists(path, trouble)) return fs::weakly_canonical(path, trouble).string();
  return {};
}

// In the build tree everything that is built is in one directory.
std::string library(const fs::path& own, char const* name) {
  std::string path = first_of({own / TUK_MEM_LIBRARY_FROM_BIN / name, own / name});
  if (path.empty())
    throw FAILURE(FAILURE::own,
                  fmt::format("{} is neither in {} nor in the build tree; install it beside this "
                              "command",
                              name, (own / TUK_MEM_LIBRARY_FROM_BIN).lexically_normal().string()));
  return path;
}

}  // namespace

PROFILER_FILES find_profiler_files() {
  const fs::path own = own_directory();
  PROFILER_FILES files;
  files.library = library(own, "libtuk_mem.so.1");
  files.malloc = library(own, "libtuk_mem_malloc.so.1");
  files.symbols = first_of({own / "tuk-mem-symbols"});
  files.filters = first_of({own / TUK_MEM_DATA_FROM_BIN / "filters/runtime.filters",
                            own / "../../share/tuk_mem/filters/runtime.filters"});
  return files;
}

std::string find_hooked_allocator() {
  std::vector<std::string> directories;
  char const* const searched_first = std::getenv("LD_LIBRARY_PATH");
  std::istringstream list(searched_first == nullptr ? "" : searched_first);
  for (std::string directory; std::getline(list, directory, ':');) directories.push_back(directory);
  for (char const* const usual : {TUK_MEM_LIBRARY_DIRECTORY, "/usr/local/lib", "/usr/lib64",
                                  "/usr/lib/x86_64-linux-gnu", "/usr/lib"})
    directories.emplace_back(usual);
  for (const std::string& directory : directories) {
    std::string path = first_of({fs::path(directory) / "libtcmalloc.so.4",
                                 fs::path(directory) / "libtcmalloc_minimal.so.4"});
    if (!path.empty()) return path;
  }
  throw FAILURE(FAILURE::own,
                "libtcmalloc.so.4 is not installed (Debian: libgoogle-perftools4); --allocator "
                "adapter profiles the program over its own allocator");
}

}  // namespace command
