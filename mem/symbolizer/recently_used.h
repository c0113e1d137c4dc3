// The order of the tool caches: most recently used last.
#pragma once

#include <algorithm>

/// Moves the element at `position` to the back; those behind it step forward.
template <class ELEMENTS>
void mem_move_to_back(ELEMENTS& elements, typename ELEMENTS::iterator position) {
  std::rotate(position, position + 1, elements.end());
}

/// Moves the last element that is wanted to the back. False when none is.
template <class ELEMENTS, class IS_WANTED>
bool mem_move_latest_to_back(ELEMENTS& elements, IS_WANTED is_wanted) {
  const auto found = std::find_if(elements.rbegin(), elements.rend(), is_wanted);
  if (found == elements.rend()) return false;
  mem_move_to_back(elements, found.base() - 1);
  return true;
}
