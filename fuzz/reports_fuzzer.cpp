// Any text as any report: it is read, or refused with a sentence; what was read before is whole.
#include <cstdint>
#include <cstdlib>
#include <sstream>

#include "tools/reports/call_tree.h"
#include "tools/reports/read_report.h"
#include "tools/reports/row_groups.h"
#include "tools/reports/row_pairs.h"

namespace {

void expect_whole(const std::optional<reports::TIMELINE>& timeline) {
  if (!timeline) return;
  for (const auto& series : timeline->series)
    if (series.values.size() != timeline->samples) std::abort();
  std::size_t samples = 0;
  for (const auto& phase : timeline->phases) samples += phase.count;
  if (samples != timeline->samples) std::abort();
}

// Whoever walks a path relies on its numbers.
void expect_whole(const reports::CALL_PATHS& paths) {
  for (const auto& frame : paths.frames)
    if (frame.module > paths.modules.size()) std::abort();
  for (std::size_t i = 0; i < paths.callers.size(); ++i) {
    const auto& [caller, frame] = paths.callers[i];
    if (caller > i || frame == 0 || frame > paths.frames.size()) std::abort();
  }
  for (const auto& path : paths.paths)
    if (path.caller > paths.callers.size() || path.site == 0 || path.site > paths.sites.size() ||
        path.bin > paths.bins.size())
      std::abort();
}

// Every path is somewhere in a tree, once.
void expect_whole_trees(const reports::CALL_PATHS& paths) {
  reports::PLACES places;
  reports::RESOLVED_FRAMES frames;
  for (const auto& frame : paths.frames) {
    reports::FRAME_PLACE place;
    place.line = static_cast<std::uint32_t>(frame.offset);
    frames.add({{places.number(place)}});
  }
  const reports::CALL_STACKS stacks(paths, frames, places);
  reports::PATH_FIGURES sum;
  for (const auto& path : paths.paths) sum += path.figures;
  reports::CALL_TREE_OPTIONS options;
  for (const auto direction : {options.CALLERS, options.CALLEES}) {
    options.direction = direction;
    const auto tree = reports::CALL_TREE::build({&stacks, 1}, options);
    if (tree.nodes()[reports::CALL_TREE::root].all != sum) std::abort();
    if (pair_nodes(tree, tree, places).size() > tree.nodes().size()) std::abort();
  }
}

}  // namespace

// The first byte chooses the kind, beyond the last the one that the text itself tells.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  if (size == 0) return 0;
  const std::size_t index = data[0] % (reports::report_kinds.size() + 1);
  const auto* const kind =
      index < reports::report_kinds.size() ? &reports::report_kinds[index] : nullptr;
  std::string text = kind == nullptr ? "" : std::string(kind->beginning);
  text.append(reinterpret_cast<char const*>(data) + 1, size - 1);
  reports::PROCESS process;
  reports::TEXTS texts;
  try {
    std::istringstream in(text);
    reports::read_report(in, "input", kind, process, texts);
  } catch (const reports::UNREADABLE&) {
  }
  for (const auto* timeline : {&process.module_bytes, &process.module_blocks, &process.tag_bytes})
    expect_whole(*timeline);
  if (process.call_paths) {
    expect_whole(*process.call_paths);
    expect_whole_trees(*process.call_paths);
  }
  process.highest_bytes();
  using reports::BY;
  for (const BY by :
       {BY::LINE, BY::LINE_OF_FUNCTION, BY::FUNCTION, BY::FILE, BY::MODULE, BY::BIN, BY::TAG}) {
    if (!reports::tells(process, by)) continue;
    const auto groups = reports::group({&process}, by);
    if (pair_rows(groups, groups).size() != groups.rows.size()) std::abort();
  }
  return 0;
}
