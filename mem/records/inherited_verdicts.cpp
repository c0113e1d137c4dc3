#include "mem/records/inherited_verdicts.h"

#include <algorithm>
#include <array>

namespace {

// The parent's first, then those of its own ancestors. What is older is asked for again.
constinit std::array<MEM_ADDRESS_TRACKER_MAP const*, 4> inherited{};

}  // namespace

void mem_inherit_verdicts(MEM_ADDRESS_TRACKER_MAP const* records) {
  std::shift_right(inherited.begin(), inherited.end(), 1);
  inherited.front() = records;
}

MEM_ADDRESS_TRACKER const* mem_inherited_verdict(void const* address) {
  for (MEM_ADDRESS_TRACKER_MAP const* const records : inherited) {
    if (records == nullptr) continue;
    const auto found = records->find(address);
    if (found != records->end()) return &found->second;
  }
  return nullptr;
}

void mem_forget_inherited_verdicts() { inherited.fill(nullptr); }
