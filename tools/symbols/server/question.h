// What a client has asked for, until it has the answer.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <vector>

#include "mem/symbolizer/symbol_protocol.h"

namespace symbols {

class KNOWN_MODULE;
struct QUESTION;

class ASKER {
 public:
  /// All its addresses are known to the module, or it is refused.
  virtual void settled(const std::shared_ptr<QUESTION>& question) = 0;

 protected:
  ~ASKER() = default;
};

/// While there is one, its module keeps what it knows.
struct QUESTION {
  QUESTION(ASKER& the_asker, std::uint32_t the_number, std::shared_ptr<KNOWN_MODULE> the_module);
  ~QUESTION();
  QUESTION(const QUESTION&) = delete;
  QUESTION& operator=(const QUESTION&) = delete;

  ASKER* asker;          ///< null when it has gone
  std::uint32_t number;  ///< the asker's
  std::shared_ptr<KNOWN_MODULE> module;
  std::vector<std::uint64_t> addresses;
  std::size_t missing = 0;                         ///< addresses that the module does not know yet
  MEM_SYMBOL_PROTOCOL::REFUSAL::REASON refusal{};  ///< 0 for none
};

}  // namespace symbols
