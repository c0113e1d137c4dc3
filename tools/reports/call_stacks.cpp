#include "tools/reports/call_stacks.h"

#include <algorithm>

namespace reports {

std::size_t PLACES::HASH::operator()(const PLACE& place) const {
  constexpr std::size_t factor = 0x9e3779b97f4a7c15;
  std::size_t hash = place.line;
  for (const std::string_view text : {place.function, place.file, place.module})
    hash = hash * factor ^ std::hash<std::string_view>()(text);
  return hash;
}

std::uint32_t PLACES::number(const FRAME_PLACE& place) {
  const auto [found, is_new] =
      m_numbers.emplace(place, static_cast<std::uint32_t>(m_places.size()));
  if (is_new) m_places.push_back(place);
  return found->second;
}

CALL_STACKS::CALL_STACKS(const CALL_PATHS& paths, const RESOLVED_FRAMES& frames, PLACES& places)
    : m_paths(&paths), m_frames(&frames), m_places(&places) {
  for (const SITE& site : paths.sites) m_places_of_sites.push_back(places.number({site}));
  FRAME_PLACE lost;
  lost.is_of_lost = true;
  lost.function = paths.beyond_limit != 0 ? "(beyond the limit)" : "(no call path)";
  m_beyond_limit = places.number(lost);
  lost.function = "(beyond the depth)";
  m_beyond_depth = places.number(lost);
  find_cut_stacks();
}

// Those of as many frames as are kept, but for those that end where a shorter one does.
void CALL_STACKS::find_cut_stacks() {
  if (m_paths->depth <= 0) return;
  struct STACK_SO_FAR {
    std::int64_t depth;
    std::uint32_t outermost;  // a frame
  };
  std::vector<STACK_SO_FAR> stacks = {{0, 0}};
  for (const CALL_PATHS::CALLER& caller : m_paths->callers) {
    const STACK_SO_FAR& above = stacks[caller.caller];
    stacks.push_back({above.depth + 1, caller.caller == 0 ? caller.frame : above.outermost});
  }
  std::vector<bool> begins_stacks(m_paths->frames.size() + 1);
  for (const CALL_PATHS::PATH& path : m_paths->paths)
    if (stacks[path.caller].depth < m_paths->depth)
      begins_stacks[stacks[path.caller].outermost] = true;
  for (const STACK_SO_FAR& stack : stacks)
    m_is_cut.push_back(stack.depth >= m_paths->depth && !begins_stacks[stack.outermost]);
}

std::size_t CALL_STACKS::cut_paths() const {
  return static_cast<std::size_t>(std::count_if(m_paths->paths.begin(), m_paths->paths.end(),
                                                [&](const auto& path) { return is_cut(path); }));
}

// Of the functions at the site's frame, those that the site's own is inlined into. Whoever named
// the site may have known functions by other names.
std::size_t CALL_STACKS::behind_site(const PLACE& site, std::uint32_t frame) const {
  const auto chain = m_frames->of(frame);
  const auto first = [&](auto&& holds) {
    return static_cast<std::size_t>(
        std::find_if(chain.begin(), chain.end(),
                     [&](std::uint32_t place) { return holds((*m_places)[place]); }) -
        chain.begin());
  };
  std::size_t found = first([&](const FRAME_PLACE& place) {
    return place.line == site.line && place.function == site.function;
  });
  if (found == chain.size())
    found = first([&](const FRAME_PLACE& place) {
      return place.line == site.line && place.line != 0 && place.file == site.file;
    });
  if (found == chain.size())
    found = first([](const FRAME_PLACE& place) { return !place.is_folded; });
  return std::min(found + 1, chain.size());
}

void CALL_STACKS::add(std::uint32_t caller, std::size_t first, FRAMES which, STACK& stack) const {
  for (const std::uint32_t place : m_frames->of(m_paths->caller(caller).frame).subspan(first))
    if (which == FRAMES::ALL || !(*m_places)[place].is_folded) stack.push_back({place, caller});
}

void CALL_STACKS::get(const CALL_PATHS::PATH& path, FRAMES which, STACK& stack) const {
  const SITE& site = m_paths->site(path);
  std::uint32_t caller = path.caller;
  stack.clear();
  if (caller == 0 || site.is_catch_all) {
    stack.push_back({m_places_of_sites[path.site - 1], 0});
    if (caller == 0) stack.push_back({m_beyond_limit, 0});
  } else {
    stack.push_back({m_places_of_sites[path.site - 1], caller});
    add(caller, behind_site(site, m_paths->caller(caller).frame), which, stack);
    caller = m_paths->caller(caller).caller;
  }
  for (; caller != 0; caller = m_paths->caller(caller).caller) add(caller, 0, which, stack);
  if (is_cut(path)) stack.push_back({m_beyond_depth, 0});
}

}  // namespace reports
