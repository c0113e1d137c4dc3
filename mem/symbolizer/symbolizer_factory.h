// Picking a symbolizer by name.
#pragma once

#include "mem/symbolizer/symbolizer.h"

class MEM_SYMBOLIZER_FACTORY {
 public:
  /// "default" (also null), or the exact name of a symbolizer; null for any other name.
  static MEM_SYMBOLIZER* get_symbolizer(char const* name);
  static MEM_SYMBOLIZER* get_default_symbolizer();

  /// Ends the tools of every symbolizer. A later request starts one again.
  static void end_all_tools();
  /// Lets go of them without ending them, in a child made by fork.
  static void abandon_all_tools();
};
