#include "tools/command/paths/resolver.h"

#include <fmt/core.h>

#include <algorithm>
#include <set>

#include "tools/command/output.h"
#include "tools/command/text.h"

namespace command {

using reports::FRAME_PLACE, reports::RESOLVED_FRAMES;

namespace {

// As the reports of the profiler put it: the same function has one name, as a site and as a caller.
constexpr std::string_view unknown_file = "Unknown";

MODULE_SYMBOLS::MODULE key_of(const reports::CALL_PATHS::MODULE& module,
                              const reports::PROCESS& process) {
  const bool goes_by_time = module.build_id.empty() && process.facts;
  return {std::string(module.path), module.build_id,
          goes_by_time ? process.facts->value("start") : ""};
}

}  // namespace

std::vector<RESOLVER::PROCESS_STACKS> RESOLVER::resolve(const reports::RUN& run) {
  MODULE_SYMBOLS::QUESTIONS questions;
  for (const reports::PROCESS& process : run.processes) {
    if (!process.call_paths) continue;
    m_folding.add_filters_of(process);
    for (auto& [module, addresses] : unknown_frames_of(process)) {
      auto& wanted = questions[module];
      wanted.insert(wanted.end(), addresses.begin(), addresses.end());
    }
  }
  for (auto& [module, addresses] : questions) {
    std::sort(addresses.begin(), addresses.end());
    addresses.erase(std::unique(addresses.begin(), addresses.end()), addresses.end());
  }
  m_symbols.ask(questions, *this);
  tell_of_refused();
  std::vector<PROCESS_STACKS> result;
  for (const reports::PROCESS& process : run.processes) {
    if (!process.call_paths) continue;
    m_frames.push_back(frames_of(process));
    result.push_back(
        {&process, reports::CALL_STACKS(*process.call_paths, m_frames.back(), m_places)});
  }
  return result;
}

MODULE_SYMBOLS::QUESTIONS RESOLVER::unknown_frames_of(const reports::PROCESS& process) {
  const CALL_PATHS& paths = *process.call_paths;
  MODULE_SYMBOLS::QUESTIONS questions;
  std::vector<std::pair<KNOWN_MODULE*, std::vector<std::uint64_t>*>> by_number;
  for (const CALL_PATHS::MODULE& module : paths.modules) {
    KNOWN_MODULE& known = m_modules[key_of(module, process)];
    known.name = m_texts.keep(module.name);
    by_number.emplace_back(&known, &questions[key_of(module, process)]);
  }
  for (const CALL_PATHS::FRAME& frame : paths.frames) {
    if (frame.module == 0) continue;
    const auto& [known, unknown] = by_number[frame.module - 1];
    if (!known->is_refused && !known->places.contains(frame.offset))
      unknown->push_back(frame.offset);
  }
  std::erase_if(questions, [](const auto& question) { return question.second.empty(); });
  return questions;
}

void RESOLVER::answered(const MODULE_SYMBOLS::MODULE& module, std::uint64_t address,
                        std::vector<symbols::FRAME> frames) {
  KNOWN_MODULE& known = m_modules[module];
  NUMBERS& places = known.places[address];
  for (const symbols::FRAME& frame : frames) {
    if (frame.function.empty()) continue;
    FRAME_PLACE place;
    place.module = known.name;
    place.file = frame.file.empty() ? unknown_file : m_texts.keep(frame.file);
    place.line = frame.line;
    place.function = m_texts.keep(frame.function);
    place.is_folded = m_folding.is_folded(place);
    places.push_back(m_places.number(place));
  }
  // As the profiler looks through a function without a name to the one that called it.
  if (places.empty()) places = unknown(known.name, address, true);
}

void RESOLVER::refused(const MODULE_SYMBOLS::MODULE& module, const std::string& sentence) {
  m_modules[module].is_refused = true;
  // The kernel's own pages have no file.
  if (!module.path.starts_with('/')) return;
  std::string told = fmt::format("{}: {}", printable(module.path), sentence);
  // Of processes that began at different times.
  if (std::find(m_refused.begin(), m_refused.end(), told) == m_refused.end())
    m_refused.push_back(std::move(told));
}

void RESOLVER::tell_of_refused() {
  constexpr std::size_t most = 3;
  for (std::size_t i = 0; i < std::min(m_refused.size(), most); ++i)
    tell(m_refused[i] + ": its frames are shown by their offsets");
  if (m_refused.size() > most)
    tell(fmt::format("and {} other modules can't be read", m_refused.size() - most));
  m_refused.clear();
}

RESOLVER::NUMBERS RESOLVER::unknown(std::string_view module, std::uint64_t offset, bool is_folded) {
  FRAME_PLACE place;
  place.module = module;
  place.function = m_texts.keep(module.empty() ? fmt::format("{:#x}", offset)
                                               : fmt::format("{}+{:#x}", module, offset));
  place.is_folded = is_folded || m_folding.is_folded(place);
  return {m_places.number(place)};
}

RESOLVED_FRAMES RESOLVER::frames_of(const reports::PROCESS& process) {
  const CALL_PATHS& paths = *process.call_paths;
  RESOLVED_FRAMES frames;
  std::vector<const KNOWN_MODULE*> modules;
  for (const CALL_PATHS::MODULE& module : paths.modules)
    modules.push_back(&m_modules[key_of(module, process)]);
  const KNOWN_MODULE none;
  for (const CALL_PATHS::FRAME& frame : paths.frames) {
    const KNOWN_MODULE& module = frame.module == 0 ? none : *modules[frame.module - 1];
    const auto known = module.places.find(frame.offset);
    frames.add(known != module.places.end() ? known->second
                                            : unknown(module.name, frame.offset, false));
  }
  return frames;
}

std::vector<std::string> notes_on_call_paths(
    const reports::RUN& run, const std::vector<RESOLVER::PROCESS_STACKS>& processes) {
  std::vector<std::string> notes;
  if (const std::size_t without = run.processes.size() - processes.size(); without != 0)
    notes.push_back(
        fmt::format("{} of {} processes have no call paths", without, run.processes.size()));
  for (const auto& [process, stacks] : processes) {
    if (const std::size_t cut = stacks.cut_paths(); cut != 0)
      notes.push_back(
          fmt::format("{}: {} of {} call paths are deeper than the {} frames that were kept "
                      "(tuk-mem run --call-path-depth)",
                      process->name, cut, stacks.paths().paths.size(), stacks.paths().depth));
    if (const std::int64_t beyond = stacks.paths().beyond_limit; beyond != 0)
      notes.push_back(
          fmt::format("{}: of {} allocations the callers are not known, since there were more "
                      "than {} call paths",
                      process->name, beyond, stacks.paths().limit));
  }
  return notes;
}

std::vector<RESOLVER::PROCESS_STACKS> resolve_call_paths(RESOLVER& resolver,
                                                         const reports::RUN& run) {
  auto processes = resolver.resolve(run);
  if (processes.empty())
    throw std::runtime_error(fmt::format(
        "{}: there is no report of call paths, which 'tuk-mem run --call-paths' writes", run.path));
  for (const std::string& note : notes_on_call_paths(run, processes)) tell(printable(note));
  return processes;
}

}  // namespace command
