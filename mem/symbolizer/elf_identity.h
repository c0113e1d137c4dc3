// Telling whether a file is the one that was loaded.
#pragma once

#include <array>
#include <cstdint>

/// What is the same in a module's memory and in its file: the build-id note, else the program
/// headers. Device and inode are not: overlay file systems change them.
struct MEM_ELF_IDENTITY {
  std::array<unsigned char, 32> build_id{};  ///< all zero when there is none
  std::uint64_t headers = 0;                 ///< digest of the program headers; 0 when unknown
  int e_type = 0;                            ///< ELF object type; 3 is a shared object or a PIE

  /// Of the module mapped from `start` on, whose addresses are those of its file plus `bias`.
  /// Unknown when its first page is not the beginning of an ELF file.
  static MEM_ELF_IDENTITY of_memory(void const* start, std::uintptr_t bias);
  /// Of an open file; unknown for one that is no 64-bit ELF file.
  static MEM_ELF_IDENTITY of_file(int descriptor);

  bool is_known() const { return headers != 0; }
  bool has_build_id() const { return build_id != decltype(build_id){}; }
  /// Whether both are of one file, as far as the better of both marks tells.
  bool is_same(const MEM_ELF_IDENTITY& other) const {
    return has_build_id() || other.has_build_id() ? build_id == other.build_id
                                                  : headers == other.headers;
  }
};
