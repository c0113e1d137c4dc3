#include "mem/symbolizer/symbolizer_server.h"

#include <new>

#include "mem/base/check.h"
#include "mem/base/static_storage.h"
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

}  // namespace

MEM_SYMBOLIZER_SERVER* MEM_SYMBOLIZER_SERVER::get_instance() {
  static constinit MEM_NEVER_DESTROYED<MEM_SYMBOLIZER_SERVER> instance;
  return &instance.object;
}

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
                                             std::vector<MEM_ADDRESS_INFO>& inlined) try {
  inlined.clear();
  if (!info.module_info_valid && !get_module_info(address, info))
    return MEM_SYMBOL_ANSWER::no_module;
  mem_check(address == info.address, "address == info.address");
  MEM_SYMBOL_ANSWER result;
  MEM_MODULE_FILE* const file = mem_file_to_ask(info, result);
  if (file == nullptr) return result;
  // A captured address is a return address: only the byte before it lies in the call.
  const std::uint64_t wanted = mem_file_address(info, file->e_type()) - 1;
  MEM_SYMBOL_BYTES payload;
  const OUTCOME outcome =
      MEM_SYMBOL_CLIENT::singleton_instance.look_up(*file, {&wanted, 1}, payload);
  if (outcome == OUTCOME::no_server)
    return MEM_SYMBOLIZER_ADDR2LINE_INLINING::get_instance()->ask(address, info, inlined);
  MEM_SYMBOL_ANSWERS answers({payload.data(), payload.size()});
  mem_parse_symbol_answer(answers.next().value_or(std::string_view()), info, inlined);
  return mem_conclude(outcome_of(outcome), *file, info, true);
} catch (const std::bad_alloc&) {
  return MEM_SYMBOL_ANSWER::for_now;
}
