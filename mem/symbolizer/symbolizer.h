// Turning code addresses into module, file, line and function. Relies on mem/base and mem/host.
#pragma once

#include <span>
#include <vector>

#include "include/tuk_mem.h"

/// How long what a symbolizer told holds.
enum class MEM_SYMBOL_ANSWER {
  no_module,  ///< in no module whose file is there; holds while the module is loaded
  for_good,   ///< known, or known to stay unknown
  for_now,    ///< unknown for want of a descriptor, a process or memory, or since a tool was lost;
              ///< asking again later may help
};

/// A symbolizer. Any thread may ask, holding none of the tracker's locks: an answer can take
/// milliseconds.
class MEM_SYMBOLIZER {
 public:
  virtual ~MEM_SYMBOLIZER() = default;
  virtual char const* get_name() const = 0;

  /// Fills the module fields of `info`. False, with `info` untouched, for a null address, one in
  /// no loaded module, or a module whose file no longer exists or is another one now. The path
  /// filled in is the library's own: the same pointer for all addresses of the module's file, for
  /// no other file, valid to the end of the process.
  virtual bool get_module_info(void const* address, MEM_ADDRESS_INFO& info) = 0;

  /// Fills line, file and function (and the module fields, when they are not valid yet). False
  /// only when the module cannot be determined; what is unknown stays empty.
  virtual bool get_source_and_function_info(void const* address, MEM_ADDRESS_INFO& info) = 0;

  /// The same, and in `inlined` the further frames that stand at the same address, innermost
  /// first. Here: none.
  virtual bool get_source_and_function_info(void const* address, MEM_ADDRESS_INFO& info,
                                            std::vector<MEM_ADDRESS_INFO>& inlined);

  /// The same, telling how long the answer holds: one that is unknown for now is not to be
  /// remembered. Here: whatever get_source_and_function_info says holds for good.
  virtual MEM_SYMBOL_ANSWER ask(void const* address, MEM_ADDRESS_INFO& info,
                                std::vector<MEM_ADDRESS_INFO>& inlined);

  /// The same, by one who is likely to ask about further addresses next: what is told of them at
  /// the same time is remembered. Here: nothing is.
  virtual MEM_SYMBOL_ANSWER ask_looking_ahead(void const* address, MEM_ADDRESS_INFO& info,
                                              std::vector<MEM_ADDRESS_INFO>& inlined,
                                              std::span<void const* const> further);
};
