// A symbolizer that says what the test wants.
#pragma once

#include <functional>

#include "mem/stack/stack_filter.h"
#include "mem/symbolizer/text_field.h"

inline MEM_ADDRESS_INFO frame(char const* module, char const* function, char const* file,
                              int line = 1) {
  MEM_ADDRESS_INFO info{};
  mem_set_text_field(info.module_name_buffer, module);
  mem_set_text_field(info.function_name_buffer, function);
  mem_set_text_field(info.file_name_buffer, file);
  info.line = line;
  return info;
}

/// In use from its construction on. Answers with what `frames_at` returns: the frame at the
/// address, then the frames inlined there.
class SCRIPTED_SYMBOLIZER final : public MEM_SYMBOLIZER {
 public:
  using FRAMES = std::vector<MEM_ADDRESS_INFO>;

  SCRIPTED_SYMBOLIZER() { mem_tbb_symbolizer = this; }
  char const* get_name() const override { return "scripted"; }
  bool get_module_info(void const* address, MEM_ADDRESS_INFO& info) override {
    mem_set_text_field(info.module_name_buffer, frames_at(address)[0].module_name_buffer);
    return true;
  }
  bool get_source_and_function_info(void const*, MEM_ADDRESS_INFO&) override { return false; }
  bool get_source_and_function_info(void const* address, MEM_ADDRESS_INFO& info,
                                    FRAMES& inlined) override {
    ++source_requests;
    inlined = frames_at(address);
    for (MEM_ADDRESS_INFO& one : inlined) one.address = address;
    info = inlined[0];
    inlined.erase(inlined.begin());
    return true;
  }

  MEM_SYMBOL_ANSWER ask(void const* address, MEM_ADDRESS_INFO& info, FRAMES& inlined) override {
    get_source_and_function_info(address, info, inlined);
    return answers_hold;
  }

  std::function<FRAMES(void const*)> frames_at;
  MEM_SYMBOL_ANSWER answers_hold = MEM_SYMBOL_ANSWER::for_good;
  std::atomic<int> source_requests = 0;
};
