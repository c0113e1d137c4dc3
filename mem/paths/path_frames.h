// The frames of call paths, and the modules they lie in.
#pragma once

#include <cstdint>

#include "mem/paths/numbered.h"
#include "mem/symbolizer/elf_identity.h"

/// A module as it was loaded. One that was removed and loaded again is another.
struct MEM_PATH_MODULE {
  std::uintptr_t begin;
  std::uintptr_t end;
  std::uintptr_t bias;  ///< its addresses less those of its file
  char const* path;     ///< kept for the life of the process
  MEM_ELF_IDENTITY identity;
  bool is_removed;

  bool holds(std::uintptr_t address) const { return address - begin < end - begin; }
};

/// By the address behind the call, of the life of its module.
struct MEM_PATH_FRAME {
  std::uintptr_t behind_call;
  std::uint32_t module;  ///< number; 0 for none
  bool is_removed;

  /// An address in the call.
  std::uintptr_t address() const { return behind_call - 1; }
};

/// One thread at a time adds and removes; others read.
class MEM_PATH_FRAMES {
 public:
  /// What is to be known of the module that an address lies in before its frame can be added. Takes
  /// no lock. May throw std::bad_alloc.
  static MEM_PATH_MODULE describe_module(std::uintptr_t address);

  /// The number of a frame, which is added where it is new; 0 where it lies in a module that
  /// add_module is to be told of first. May throw std::bad_alloc.
  std::uint32_t number_of(std::uintptr_t behind_call);
  void add_module(const MEM_PATH_MODULE& module);

  /// The frames of [begin, end) are of a module that is gone. Whether there were any.
  bool remove(std::uintptr_t begin, std::uintptr_t end);

  std::uintptr_t behind_call(std::uint32_t number) { return m_frames[number].behind_call; }
  bool is_removed(std::uint32_t number) { return m_frames[number].is_removed; }
  MEM_NUMBERED<MEM_PATH_FRAME>& frames() { return m_frames; }
  MEM_NUMBERED<MEM_PATH_MODULE>& modules() { return m_modules; }

 private:
  bool find_module(std::uintptr_t address, std::uint32_t& number);

  MEM_NUMBERED<MEM_PATH_MODULE> m_modules;
  MEM_NUMBERED<MEM_PATH_FRAME> m_frames;
  MEM_NUMBER_INDEX m_index;
};
