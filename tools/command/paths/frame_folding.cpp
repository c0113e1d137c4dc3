#include "tools/command/paths/frame_folding.h"

#include <fmt/core.h>

#include <cerrno>
#include <cstring>
#include <fstream>

#include "mem/stack/frame_filters.h"
#include "tools/command/output.h"
#include "tools/command/text.h"

namespace command {

void FRAME_FOLDING::add_filters_of(const reports::PROCESS& process) {
  if (!process.facts) return;
  for (const auto& setting : process.facts->settings)
    if (setting.name == "mem_user_defined_filters_file" && !setting.value.empty() &&
        m_read.insert(setting.value).second)
      read(setting.value);
}

void FRAME_FOLDING::read(const std::string& path) {
  errno = 0;
  std::ifstream file(path);
  if (!file)
    return tell(fmt::format("{}: {}: frames that these filters look through are shown",
                            printable(path), std::strerror(errno)));
  for (std::string text; std::getline(file, text);) {
    const MEM_FILTER_LINE line(text);
    if (line.fault != MEM_FILTER_LINE::WELL) continue;
    if (line.kind == MEM_FILTER_LINE::MODULE) m_modules.emplace_back(line.prefix);
    if (line.kind == MEM_FILTER_LINE::FUNCTION) m_functions.emplace_back(line.prefix);
    if (line.kind == MEM_FILTER_LINE::FILE_BASENAME) m_files.emplace_back(line.prefix);
  }
}

bool FRAME_FOLDING::is_folded(const reports::PLACE& place) const {
  const MEM_FRAME_FILTERS<std::vector<std::string>> filters{m_modules, m_functions, m_files};
  return filters.reject_module(place.module) || filters.reject_frame(place.function, place.file);
}

}  // namespace command
