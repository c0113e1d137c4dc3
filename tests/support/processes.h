// Looking for processes from outside.
#pragma once

#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <vector>

/// The processes, but for this one, that run in `directory`; those that have ended are none.
inline std::vector<int> processes_in(const std::filesystem::path& directory) {
  std::vector<int> found;
  std::error_code gone;
  for (const auto& process : std::filesystem::directory_iterator("/proc")) {
    const int number = std::atoi(process.path().filename().c_str());
    if (number == 0 || number == getpid()) continue;
    if (std::filesystem::read_symlink(process.path() / "cwd", gone) == directory && !gone)
      found.push_back(number);
  }
  return found;
}
