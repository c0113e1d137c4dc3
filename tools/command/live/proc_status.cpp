#include "tools/command/live/proc_status.h"

#include <fmt/core.h>

#include <cstdlib>
#include <fstream>
#include <iterator>

namespace command {

PROC_STATUS::PROC_STATUS(pid_t process) {
  std::ifstream file(fmt::format("/proc/{}/status", process));
  m_text.assign(std::istreambuf_iterator<char>(file), {});
  if (!m_text.empty()) m_text.insert(0, 1, '\n');  // each field stands behind a line break
}

std::string PROC_STATUS::text(const std::string& field) const {
  const std::string name = '\n' + field + ":\t";
  const std::size_t found = m_text.find(name);
  if (found == std::string::npos) return {};
  const std::size_t begin = found + name.size();
  return m_text.substr(begin, m_text.find('\n', begin) - begin);
}

std::uint64_t PROC_STATUS::bytes(const std::string& field) const {
  return std::strtoull(text(field).c_str(), nullptr, 10) * 1024;
}

bool PROC_STATUS::handles(int signal) const {
  const std::uint64_t mask = std::strtoull(text("SigCgt").c_str(), nullptr, 16);
  return signal > 0 && ((mask >> (signal - 1)) & 1) != 0;
}

}  // namespace command
