// Reports as the library writes them, with what a test wants in them.
#pragma once

#include <filesystem>
#include <fstream>
#include <string>

inline const std::string titles =
    "Address\tCurrent bytes\tMax bytes\tPeak bytes\tCumulative bytes\tCurrent blocks\tModule\tFile"
    "\tLine\tFunction\n";
inline const std::string sites_head =
    "MEM: TBB Fileline Tracking Memory Snapshot. [at index 3]\n\n" + titles;
inline const std::string end = "Time spent dumping:\t9 clicks.\t9e-06 seconds.\n";
inline const std::string bins_head =
    "Memory Tracking - Profile Bin Stats\n\nName\tMax bytes\tPeak bytes\n";

/// A site; blocks are of 100 bytes.
inline std::string site(const std::string& address, int live, int peak, const std::string& names) {
  const std::string current = std::to_string(100 * live);
  const std::string most = std::to_string(100 * peak);
  return address + "\t" + current + "\t" + most + "\t" + most + "\t" + most + "\t" +
         std::to_string(live) + "\t" + names + "\n";
}

inline std::string sites(const std::string& rows) { return sites_head + rows + end; }

inline void write(const std::filesystem::path& path, const std::string& text) {
  std::filesystem::create_directories(path.parent_path());
  std::ofstream(path, std::ios::binary) << text;
}
