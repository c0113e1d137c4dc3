// The symbolizer that asks one program for all modules, and maybe for all processes.
#pragma once

#include "mem/symbolizer/symbolizer.h"

/// Answers as "addr2line_inlining" does, which takes over where no server is to be had.
class MEM_SYMBOLIZER_SERVER final : public MEM_SYMBOLIZER {
 public:
  /// There to the end of the process: threads may still ask while it exits.
  static MEM_SYMBOLIZER_SERVER* get_instance();

  char const* get_name() const override { return "server"; }
  bool get_module_info(void const* address, MEM_ADDRESS_INFO& info) override;
  bool get_source_and_function_info(void const* address, MEM_ADDRESS_INFO& info) override;
  /// `address` is a return address: the frames described are those of the call before it.
  bool get_source_and_function_info(void const* address, MEM_ADDRESS_INFO& info,
                                    std::vector<MEM_ADDRESS_INFO>& inlined) override;
  MEM_SYMBOL_ANSWER ask(void const* address, MEM_ADDRESS_INFO& info,
                        std::vector<MEM_ADDRESS_INFO>& inlined) override;
  /// Those in the same module are told in the same answer.
  MEM_SYMBOL_ANSWER ask_looking_ahead(void const* address, MEM_ADDRESS_INFO& info,
                                      std::vector<MEM_ADDRESS_INFO>& inlined,
                                      std::span<void const* const> further) override;
};
