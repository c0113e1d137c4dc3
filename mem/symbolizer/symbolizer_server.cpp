#include "mem/symbolizer/symbolizer_server.h"

#include <algorithm>
#include <new>

#include "mem/base/check.h"
#include "mem/base/static_storage.h"
#include "mem/symbolizer/answers_ahead.h"
#include "mem/symbolizer/loaded_module.h"
#include "mem/symbolizer/module_info.h"
#include "mem/symbolizer/symbol_client.h"
#include "mem/symbolizer/symbolizer_addr2line_inlining.h"
#include "mem/symbolizer/tool_request.h"

namespace {

using OUTCOME = MEM_SYMBOL_CLIENT::OUTCOME;

MEM_TOOL_OUTCOME outcome_of(OUTCOME outcome) {
  if (outcome == OUTCOME::answered) return {MEM_TOOL_OUTCOME::answered, nullptr};
  return {
      outcome == OUTCOME::for_now ? MEM_TOOL_OUTCOME::unknown_for_now : MEM_TOOL_OUTCOME::unknown,
      nullptr};
}

using ADDRESSES = std::vector<std::uint64_t, MEM_BOOKKEEPING_ALLOCATOR<std::uint64_t>>;

// The address that is wanted, as the file counts it, and the further ones in the same module.
ADDRESSES addresses_of_module(void const* address, std::uint64_t wanted,
                              std::span<void const* const> further) {
  ADDRESSES addresses = {wanted};
  MEM_LOADED_MODULE module;
  if (further.empty() || !module.find(address)) return addresses;
  for (void const* const another : further) {
    MEM_LOADED_MODULE others;
    const std::uint64_t in_file = wanted + (reinterpret_cast<std::uintptr_t>(another) -
                                            reinterpret_cast<std::uintptr_t>(address));
    if (others.find(another) && others.map == module.map &&
        std::find(addresses.begin(), addresses.end(), in_file) == addresses.end())
      addresses.push_back(in_file);
  }
  return addresses;
}

// The frames of the first address; those of the others are kept for later.
OUTCOME look_up(MEM_MODULE_FILE& file, const ADDRESSES& addresses, MEM_SYMBOL_BYTES& frames) {
  MEM_SYMBOL_BYTES payload;
  const OUTCOME outcome = MEM_SYMBOL_CLIENT::singleton_instance.look_up(file, addresses, payload);
  MEM_SYMBOL_ANSWERS answers({payload.data(), payload.size()});
  const std::string_view first = answers.next().value_or(std::string_view());
  frames.assign(first.begin(), first.end());
  for (std::size_t i = 1; i < addresses.size(); ++i)
    if (const auto others = answers.next())
      MEM_ANSWERS_AHEAD::singleton_instance.keep(file, addresses[i], *others);
  return outcome;
}

constinit MEM_NEVER_DESTROYED<MEM_SYMBOLIZER_SERVER> only_server;

}  // namespace

MEM_SYMBOLIZER_SERVER* MEM_SYMBOLIZER_SERVER::get_instance() { return &only_server.object; }

bool MEM_SYMBOLIZER_SERVER::get_module_info(void const* address, MEM_ADDRESS_INFO& info) {
  return mem_get_module_info(address, info);
}

bool MEM_SYMBOLIZER_SERVER::get_source_and_function_info(void const* address,
                                                         MEM_ADDRESS_INFO& info) {
  std::vector<MEM_ADDRESS_INFO> thrown_away;
  return get_source_and_function_info(address, info, thrown_away);
}

bool MEM_SYMBOLIZER_SERVER::get_source_and_function_info(void const* address,
                                                         MEM_ADDRESS_INFO& info,
                                                         std::vector<MEM_ADDRESS_INFO>& inlined) {
  return ask(address, info, inlined) != MEM_SYMBOL_ANSWER::no_module;
}

MEM_SYMBOL_ANSWER MEM_SYMBOLIZER_SERVER::ask(void const* address, MEM_ADDRESS_INFO& info,
                                             std::vector<MEM_ADDRESS_INFO>& inlined) {
  return ask_looking_ahead(address, info, inlined, {});
}

MEM_SYMBOL_ANSWER MEM_SYMBOLIZER_SERVER::ask_looking_ahead(
    void const* address, MEM_ADDRESS_INFO& info, std::vector<MEM_ADDRESS_INFO>& inlined,
    std::span<void const* const> further) try {
  inlined.clear();
  if (!info.module_info_valid && !get_module_info(address, info))
    return MEM_SYMBOL_ANSWER::no_module;
  mem_check(address == info.address, "address == info.address");
  MEM_SYMBOL_ANSWER result;
  MEM_MODULE_FILE* const file = mem_file_to_ask(info, result);
  if (file == nullptr) return result;
  // A captured address is a return address: only the byte before it lies in the call.
  const std::uint64_t wanted = mem_file_address(info, file->e_type()) - 1;
  MEM_SYMBOL_BYTES frames;
  OUTCOME outcome = OUTCOME::answered;
  if (!MEM_ANSWERS_AHEAD::singleton_instance.take(*file, wanted, frames))
    outcome = look_up(*file, addresses_of_module(address, wanted, further), frames);
  if (outcome == OUTCOME::no_server)
    return MEM_SYMBOLIZER_ADDR2LINE_INLINING::get_instance()->ask(address, info, inlined);
  mem_parse_symbol_answer({frames.data(), frames.size()}, info, inlined);
  return mem_conclude(outcome_of(outcome), *file, info, true);
} catch (const std::bad_alloc&) {
  return MEM_SYMBOL_ANSWER::for_now;
}
