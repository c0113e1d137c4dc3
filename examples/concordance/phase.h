// A stretch of the host's work, told to whoever watches its output.
#pragma once

#include <string>

#include "tuk_mem_scopes.h"

/// A profile bin, under a tag or under the enclosing one. Says at the end of the scope how the
/// process's memory went meanwhile, if that is being tracked.
class PHASE {
 public:
  explicit PHASE(std::string name, std::string tag = {});
  PHASE(const PHASE&) = delete;
  PHASE& operator=(const PHASE&) = delete;
  ~PHASE();

 private:
  MEM_PHASE m_phase;
};
