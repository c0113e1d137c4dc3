#include "tools/symbols/core/module.h"

#include <optional>
#include <unordered_map>
#include <utility>

#include "tools/symbols/core/debug_files.h"
#include "tools/symbols/core/debug_information.h"
#include "tools/symbols/core/demangle.h"
#include "tools/symbols/core/symbol_table.h"
#include "tools/symbols/core/unnamed_functions.h"

namespace symbols {

class MODULE::PARTS {
 public:
  PARTS(int descriptor, const std::string& path, DEPTH depth)
      : m_path(path), m_files(descriptor, path), m_depth(depth) {}

  bool is_open() const { return m_files.module() != nullptr; }

  std::vector<FRAME> look_up(std::uint64_t address) {
    DEBUG_INFORMATION* information = debug_information();
    const auto source = information == nullptr ? std::nullopt : information->find(address - m_bias);
    std::vector<FRAME> frames = source ? frames_of(*source) : std::vector<FRAME>(1);
    if (frames[0].function.empty()) complete(frames[0], address);
    return frames;
  }

 private:
  // Each function stands where the one inside it is called.
  std::vector<FRAME> frames_of(const SOURCE& source) {
    std::vector<FRAME> frames;
    FRAME frame{.function = {}, .file = source.file, .line = source.line};
    for (const SOURCE_FUNCTION& function : source.functions) {
      frame.function = name_of(function);
      frames.push_back(std::move(frame));
      frame = {.function = {}, .file = function.call_file, .line = function.call_line};
    }
    if (frames.empty()) frames.push_back(std::move(frame));
    return frames;
  }

  // The debug information has only the last part of the names of functions that are not shared
  // between units; the symbol table has all of it.
  std::string name_of(const SOURCE_FUNCTION& function) {
    if (!function.is_linker_name && function.low != 0)
      if (const auto symbol = symbols().starting_at(function.low + m_bias))
        return readable(symbol->name);
    return readable(function.name);
  }

  // The same few functions are inlined everywhere.
  const std::string& readable(const std::string& name) {
    constexpr std::size_t most_bytes = std::size_t{2} << 20;  // one of templates may have 100,000
    if (m_bytes_of_readable > most_bytes) {
      m_readable.clear();
      m_bytes_of_readable = 0;
    }
    const auto [known, is_new] = m_readable.try_emplace(name);
    if (is_new) {
      known->second = demangled(name.c_str());
      m_bytes_of_readable += name.size() + known->second.size();
    }
    return known->second;
  }

  void complete(FRAME& frame, std::uint64_t address) {
    const auto symbol = symbols().find(address);
    if (!symbol) {
      if (!m_unnamed) m_unnamed.emplace(m_files.module(), m_path, symbols());
      frame.function = m_unnamed->name_at(address);
      return;
    }
    frame.function = demangled(symbol->name);
    if (frame.file.empty() && symbol->file != nullptr) frame.file = symbol->file;
  }

  // Looking for it may lead to other files, so not before it is needed.
  DEBUG_INFORMATION* debug_information() {
    if (!std::exchange(m_has_looked_for_debug_information, true) && m_depth == DEPTH::everything) {
      Dwarf* const found = m_files.debug_information(m_bias);
      if (found != nullptr) m_debug_information.emplace(dwarf_getelf(found), dwarf_getalt(found));
    }
    return m_debug_information ? &*m_debug_information : nullptr;
  }

  SYMBOL_TABLE& symbols() {
    if (!m_symbols) m_symbols.emplace(m_files.module());
    return *m_symbols;
  }

  std::string m_path;
  DEBUG_FILES m_files;
  DEPTH m_depth;
  bool m_has_looked_for_debug_information = false;
  std::uint64_t m_bias = 0;
  std::optional<DEBUG_INFORMATION> m_debug_information;
  std::optional<SYMBOL_TABLE> m_symbols;
  std::optional<UNNAMED_FUNCTIONS> m_unnamed;
  std::unordered_map<std::string, std::string> m_readable;  // of names as the linker knows them
  std::size_t m_bytes_of_readable = 0;
};

MODULE::MODULE(std::unique_ptr<PARTS> parts) : m_parts(std::move(parts)) {}
MODULE::~MODULE() = default;

std::unique_ptr<MODULE> MODULE::open(int descriptor, const std::string& path, DEPTH depth) {
  auto parts = std::make_unique<PARTS>(descriptor, path, depth);
  if (!parts->is_open()) return nullptr;
  return std::unique_ptr<MODULE>(new MODULE(std::move(parts)));
}

std::vector<FRAME> MODULE::look_up(std::uint64_t address) { return m_parts->look_up(address); }

}  // namespace symbols
