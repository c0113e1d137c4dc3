// A stretch of the host's work, as a profile bin.
#pragma once

#include <string>

/// Opens a bin, under a tag or under the enclosing one, and closes it at the end of the scope. Says
/// then how the process's memory went meanwhile, if that is being tracked.
class PHASE {
 public:
  explicit PHASE(std::string name, std::string tag = {});
  PHASE(const PHASE&) = delete;
  PHASE& operator=(const PHASE&) = delete;
  ~PHASE();

 private:
  std::string m_name;
  std::string m_tag;
};
