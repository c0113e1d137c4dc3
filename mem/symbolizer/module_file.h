// The files that modules were loaded from.
#pragma once

#include <atomic>

#include "include/tuk_mem.h"
#include "mem/base/bookkeeping.h"
#include "mem/symbolizer/elf_identity.h"
#include "mem/symbolizer/loaded_module.h"
#include "mem/symbolizer/symbol_index.h"

/// A module's file: a path, and what tells that the file there is still the one that was loaded.
/// Kept for the life of the process, so that a record of the module may point at the path when the
/// module is long gone. Two modules with the same path but not the same file are two. Any thread
/// may use one; no lock is taken, none of the loader's either.
class MEM_MODULE_FILE {
 public:
  enum class STATE {
    usable,
    gone,        ///< no longer there, or another file is
    unreadable,  ///< for this process, as a file that may only be executed
    not_now,     ///< the system has no room to look; it may have later
  };

  /// The file of a loaded module. May throw std::bad_alloc.
  static MEM_MODULE_FILE& of_module(const MEM_LOADED_MODULE& module);
  /// The file that a record's module_path belongs to; one without identity when it is none of ours.
  static MEM_MODULE_FILE& of_path(char const* path);

  /// As the loader names it, or for the executable as the kernel does: the loader knows that one by
  /// argv[0], which says nothing about a file and which a program may write over. The same pointer
  /// for every record of this file, and for no other file.
  char const* path() const { return m_path.c_str(); }
  /// The path from any directory: the host may change to another one.
  char const* absolute_path() const { return m_absolute_path.c_str(); }

  /// Looks at the file as it is now. Cheap while nothing has touched it.
  STATE state();

  /// Opens the file for reading, if it is usable still; -1, with the reason in `state`, if not. The
  /// descriptor is the caller's, and any number.
  int open(STATE& state);

  /// The symbol that an address of this module, loaded from the file, lies in, as dladdr tells it.
  /// May throw std::bad_alloc.
  MEM_LOADED_SYMBOL nearest_symbol(const MEM_LOADED_MODULE& module, void const* address);

  /// ELF object type. Meaningful once the file was usable.
  int e_type() const { return m_e_type; }

  /// Counts a tool that died or fell silent over this file. Returns the number so far.
  int count_tool_failure() { return ++m_tool_failures; }
  int tool_failures() const { return m_tool_failures; }
  /// What is said once for a file.
  enum TROUBLE : unsigned { file_is_gone = 1, file_is_unreadable = 2, shortage = 4 };
  /// True the first time.
  bool is_first(TROUBLE trouble) { return (m_troubles.fetch_or(trouble) & trouble) == 0; }

  /// Counts an answer. True once, when the file has given several and a source line to none.
  bool seems_without_lines(bool has_line);

 private:
  MEM_MODULE_FILE(char const* name, const MEM_ELF_IDENTITY& identity);

  static MEM_MODULE_FILE& find_or_add(char const* name, const MEM_ELF_IDENTITY& identity);
  static MEM_MODULE_FILE* find(char const* name, const MEM_ELF_IDENTITY& identity,
                               MEM_MODULE_FILE* first, MEM_MODULE_FILE* end);
  STATE compare_with(int descriptor);
  MEM_SYMBOL_INDEX const* symbols_of(const THR_SYMBOL_TABLE& table);

  MEM_BOOKKEEPING_STRING m_name;  // the loader's; empty for the executable
  MEM_BOOKKEEPING_STRING m_path;
  MEM_BOOKKEEPING_STRING m_absolute_path;
  MEM_ELF_IDENTITY m_identity;  // as loaded
  std::atomic<std::uint64_t> m_size{0};
  std::atomic<std::uint64_t> m_compared_stamp{0};
  std::atomic<STATE> m_compared_state{STATE::gone};
  std::atomic<int> m_e_type{0};
  std::atomic<int> m_tool_failures{0};
  std::atomic<unsigned> m_troubles{0};
  std::atomic<int> m_answers_without_line{0};
  std::atomic<int> m_symbols_asked{0};
  std::atomic<MEM_SYMBOL_INDEX const*> m_symbols{nullptr};
  MEM_MODULE_FILE* m_older = nullptr;
};
