// Functions and lines of addresses in modules' files.
#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <span>
#include <string>
#include <tuple>
#include <unordered_map>
#include <vector>

#include "tools/symbols/core/module.h"
#include "tools/symbols/server/module_store.h"

namespace command {

/// Reads the files by the code of the symbol server, in processes beside this one: a damaged file
/// ends one of those, and its addresses stay unknown.
class MODULE_SYMBOLS : private symbols::ASKER {
 public:
  /// A module as it was when the program ran.
  struct MODULE {
    std::string path;
    std::string build_id;  ///< hexadecimal; empty when it is not known to have one
    std::string began;     ///< where there is no build id: when the program did, if that is known
    bool operator<(const MODULE& other) const {
      return std::tie(path, build_id, began) < std::tie(other.path, other.build_id, other.began);
    }
  };
  /// Addresses as the files count them, in any order.
  using QUESTIONS = std::map<MODULE, std::vector<std::uint64_t>>;
  /// Is told the frames at an address, innermost first.
  class READER {
   public:
    virtual void answered(const MODULE& module, std::uint64_t address,
                          std::vector<symbols::FRAME> frames) = 0;
    /// None of the module's addresses can be told, for the reason that the sentence tells.
    virtual void refused(const MODULE& module, const std::string& sentence) = 0;

   protected:
    ~READER() = default;
  };

  MODULE_SYMBOLS();
  /// Asks for all at once, and waits for the last answer.
  void ask(const QUESTIONS& questions, READER& reader);

 private:
  void settled(const std::shared_ptr<symbols::QUESTION>& question) override;
  void ask(const MODULE& module, const std::vector<std::uint64_t>& addresses);
  void wait();

  symbols::LOOP m_loop;
  symbols::MODULE_STORE m_store;
  READER* m_reader = nullptr;
  std::vector<const MODULE*> m_modules;  // by the number of the question
  std::size_t m_open = 0;
};

}  // namespace command
