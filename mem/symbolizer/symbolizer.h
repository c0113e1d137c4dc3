// Turning code addresses into module, file, line and function. Relies on mem/base and mem/host.
#pragma once

#include <vector>

#include "include/tuk_mem.h"

/// A symbolizer. Any thread may ask, holding none of the tracker's locks: an answer can take
/// milliseconds.
class MEM_SYMBOLIZER {
 public:
  virtual ~MEM_SYMBOLIZER() = default;
  virtual char const* get_name() const = 0;

  /// Fills the module fields of `info`. False, with `info` untouched, for a null address, one in
  /// no loaded module, or a module whose file no longer exists.
  virtual bool get_module_info(void const* address, MEM_ADDRESS_INFO& info) = 0;

  /// Fills line, file and function (and the module fields, when they are not valid yet). False
  /// only when the module cannot be determined; what is unknown stays empty.
  virtual bool get_source_and_function_info(void const* address, MEM_ADDRESS_INFO& info) = 0;

  /// The same, and in `inlined` the further frames that stand at the same address, innermost
  /// first. Here: none.
  virtual bool get_source_and_function_info(void const* address, MEM_ADDRESS_INFO& info,
                                            std::vector<MEM_ADDRESS_INFO>& inlined);
};
