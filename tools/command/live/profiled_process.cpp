#include "tools/command/live/profiled_process.h"

#include <fmt/core.h>
#include <signal.h>
#include <strings.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string_view>
#include <thread>

#include "tools/command/failure.h"
#include "tools/command/live/proc_status.h"

namespace fs = std::filesystem;

namespace command {

namespace {

[[noreturn]] void refuse(pid_t process, const std::string& why) {
  throw FAILURE(FAILURE::own, fmt::format("process {}: {}", process, why));
}

// The value of a variable in what the process was started with; empty for none.
std::string variable(pid_t process, const std::string& name) {
  std::ifstream file(fmt::format("/proc/{}/environ", process), std::ios::binary);
  for (std::string entry; std::getline(file, entry, '\0');)
    if (entry.compare(0, name.size(), name) == 0 && entry[name.size()] == '=')
      return entry.substr(name.size() + 1);
  return {};
}

fs::path link_of(pid_t process, char const* name) {
  std::error_code trouble;
  return fs::read_symlink(fmt::format("/proc/{}/{}", process, name), trouble);
}

// The kernel marks the path of a file that has been replaced meanwhile.
std::string without_mark(std::string path) {
  constexpr std::string_view mark = " (deleted)";
  if (path.ends_with(mark)) path.resize(path.size() - mark.size());
  return path;
}

std::string expanded(const std::string& text, pid_t process) {
  std::string result;
  for (std::size_t i = 0; i < text.size(); ++i) {
    if (text[i] != '%' || i + 1 == text.size()) {
      result += text[i];
      continue;
    }
    switch (text[++i]) {
      case 'p':
        result += std::to_string(process);
        break;
      case 'e':
        result += without_mark(link_of(process, "exe").filename().string());
        break;
      default:
        result += text[i];
    }
  }
  return result;
}

}  // namespace

std::vector<std::string> processes_with(const std::string& name, const std::string& value) {
  std::vector<std::string> found;
  std::error_code trouble;
  for (const fs::directory_entry& entry : fs::directory_iterator("/proc", trouble)) {
    const pid_t process = std::atoi(entry.path().filename().c_str());
    if (process > 0 && variable(process, name) == value)
      found.push_back(PROC_STATUS(process).text("Name") + ' ' + std::to_string(process));
  }
  return found;
}

int signal_number(const std::string& name) {
  if (!name.empty() && std::all_of(name.begin(), name.end(), ::isdigit))
    return std::atoi(name.c_str());
  char const* text = name.c_str();
  if (strncasecmp(text, "SIG", 3) == 0) text += 3;
  if (strncasecmp(text, "RTMIN", 5) == 0) return SIGRTMIN + std::atoi(text + 5);
  if (strncasecmp(text, "RTMAX", 5) == 0) return SIGRTMAX + std::atoi(text + 5);
  for (int number = 1; number < SIGRTMIN; ++number) {
    char const* const known = sigabbrev_np(number);
    if (known != nullptr && strcasecmp(known, text) == 0) return number;
  }
  return 0;
}

PROFILED_PROCESS::PROFILED_PROCESS(pid_t process) : m_process(process) {
  const PROC_STATUS status(process);
  if (!status.is_there()) refuse(process, std::strerror(ESRCH));
  const std::string signal = variable(process, "KORVANE_MEM_SNAPSHOT_SIGNAL");
  m_signal = signal_number(signal);
  if (signal.empty() || !status.handles(m_signal))
    refuse(process,
           "does not listen to a signal that asks for snapshots; start it with tuk-mem "
           "run, or with KORVANE_MEM_SNAPSHOT_SIGNAL");
  const fs::path wanted = expanded(variable(process, "KORVANE_MEM_REPORT_DIRECTORY"), process);
  m_directory = (link_of(process, "cwd") / wanted).lexically_normal().string();
}

bool PROFILED_PROCESS::is_there() const {
  const PROC_STATUS status(m_process);
  return status.is_there() && status.text("State").find('Z') == std::string::npos;
}

// Named snapshot-0001 and so on once they are complete.
std::set<std::string> PROFILED_PROCESS::snapshots() const {
  std::set<std::string> names;
  std::error_code trouble;
  for (const fs::directory_entry& entry : fs::directory_iterator(m_directory, trouble)) {
    const std::string name = entry.path().filename().string();
    constexpr std::size_t start = sizeof "snapshot-" - 1;
    if (name.compare(0, start, "snapshot-") == 0 && name.size() > start &&
        std::all_of(name.begin() + start, name.end(), ::isdigit))
      names.insert(name);
  }
  return names;
}

std::optional<std::string> PROFILED_PROCESS::new_snapshot() {
  std::set<std::string> now = snapshots();
  for (const std::string& name : *m_before_request) now.erase(name);
  if (now.empty()) return std::nullopt;
  m_before_request.reset();
  return m_directory + '/' + *now.rbegin();
}

std::optional<std::string> PROFILED_PROCESS::take_snapshot(std::chrono::milliseconds time) {
  constexpr std::chrono::milliseconds step{10};
  if (!m_before_request)
    m_before_request = snapshots();
  else if (auto late = new_snapshot())
    return late;
  if (kill(m_process, m_signal) != 0) refuse(m_process, std::strerror(errno));
  for (auto waited = step; waited <= time; waited += step) {
    std::this_thread::sleep_for(step);
    if (auto snapshot = new_snapshot()) return snapshot;
    if (!is_there()) return std::nullopt;
  }
  return std::nullopt;
}

}  // namespace command
