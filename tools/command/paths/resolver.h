// Call paths with names.
#pragma once

#include <deque>
#include <string>
#include <unordered_map>
#include <vector>

#include "tools/command/paths/frame_folding.h"
#include "tools/command/paths/module_symbols.h"
#include "tools/reports/call_stacks.h"
#include "tools/reports/run.h"

namespace command {

/// Finds out what the frames of runs are, each once however many processes have it. What can't be
/// told is shown as module and offset, and the reason is said.
class RESOLVER : private MODULE_SYMBOLS::READER {
 public:
  struct PROCESS_STACKS {
    const reports::PROCESS* process;
    reports::CALL_STACKS stacks;
  };

  /// Of those processes that have call paths. Good while the run and this live; of several runs,
  /// all are about the same places.
  std::vector<PROCESS_STACKS> resolve(const reports::RUN& run);

  const reports::PLACES& places() const { return m_places; }

 private:
  using CALL_PATHS = reports::CALL_PATHS;
  using NUMBERS = std::vector<std::uint32_t>;  // of places
  struct KNOWN_MODULE {
    bool is_refused = false;
    std::string_view name;
    std::unordered_map<std::uint64_t, NUMBERS> places;  // by address
  };

  MODULE_SYMBOLS::QUESTIONS unknown_frames_of(const reports::PROCESS& process);
  void answered(const MODULE_SYMBOLS::MODULE& module, std::uint64_t address,
                std::vector<symbols::FRAME> frames) override;
  void refused(const MODULE_SYMBOLS::MODULE& module, const std::string& sentence) override;
  reports::RESOLVED_FRAMES frames_of(const reports::PROCESS& process);
  NUMBERS unknown(std::string_view module, std::uint64_t offset, bool is_folded);
  void tell_of_refused();

  MODULE_SYMBOLS m_symbols;
  FRAME_FOLDING m_folding;
  reports::TEXTS m_texts;
  reports::PLACES m_places;
  std::map<MODULE_SYMBOLS::MODULE, KNOWN_MODULE> m_modules;
  std::deque<reports::RESOLVED_FRAMES> m_frames;
  std::vector<std::string> m_refused;  // sentences, not said yet
};

/// Sentences on what a run that has call paths lacks of them.
std::vector<std::string> notes_on_call_paths(
    const reports::RUN& run, const std::vector<RESOLVER::PROCESS_STACKS>& processes);

/// The stacks of a run that is expected to have call paths: says which processes have none, and how
/// much is beyond the limit. Throws std::runtime_error when none has.
std::vector<RESOLVER::PROCESS_STACKS> resolve_call_paths(RESOLVER& resolver,
                                                         const reports::RUN& run);

}  // namespace command
