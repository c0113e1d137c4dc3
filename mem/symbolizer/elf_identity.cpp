#include "mem/symbolizer/elf_identity.h"

#include <elf.h>

#include <algorithm>
#include <cstring>
#include <span>

#include "platform/raw_syscall.h"

namespace {

constexpr std::size_t most_headers = 64;
constexpr std::size_t longest_notes = 4096;

bool is_elf(const Elf64_Ehdr& header) {
  return std::memcmp(header.e_ident, ELFMAG, SELFMAG) == 0 &&
         header.e_ident[EI_CLASS] == ELFCLASS64 && header.e_phentsize == sizeof(Elf64_Phdr) &&
         header.e_phnum > 0 && header.e_phnum <= most_headers;
}

// FNV-1a.
std::uint64_t digest_of(std::span<const Elf64_Phdr> headers) {
  std::uint64_t digest = 0xcbf29ce484222325;
  for (const std::byte byte : std::as_bytes(headers))
    digest = (digest ^ static_cast<std::uint64_t>(byte)) * 0x100000001b3;
  return digest;
}

// Takes the build id over when it is among the notes.
void find_build_id(std::span<const unsigned char> notes, MEM_ELF_IDENTITY& identity) {
  const auto aligned = [](std::size_t size) { return (size + 3) & ~std::size_t{3}; };
  while (notes.size() >= sizeof(Elf64_Nhdr)) {
    Elf64_Nhdr note;
    std::memcpy(&note, notes.data(), sizeof note);
    notes = notes.subspan(sizeof note);
    const std::size_t name = aligned(note.n_namesz);
    if (name > notes.size() || note.n_descsz > notes.size() - name) return;
    if (note.n_type == NT_GNU_BUILD_ID && note.n_namesz == sizeof ELF_NOTE_GNU &&
        std::memcmp(notes.data(), ELF_NOTE_GNU, sizeof ELF_NOTE_GNU) == 0)
      std::copy_n(notes.data() + name, std::min<std::size_t>(note.n_descsz, 32),
                  identity.build_id.begin());
    notes = notes.subspan(std::min(name + aligned(note.n_descsz), notes.size()));
  }
}

// Whether the segment lies in what the loader has mapped.
bool is_loaded(const Elf64_Phdr& segment, std::span<const Elf64_Phdr> headers) {
  return std::any_of(headers.begin(), headers.end(), [&](const Elf64_Phdr& loaded) {
    return loaded.p_type == PT_LOAD && (loaded.p_flags & PF_R) != 0 &&
           segment.p_vaddr >= loaded.p_vaddr && segment.p_filesz <= loaded.p_filesz &&
           segment.p_vaddr - loaded.p_vaddr <= loaded.p_filesz - segment.p_filesz;
  });
}

bool read_at(int descriptor, void* buffer, std::size_t size, std::uint64_t offset) {
  return thr_raw_syscall(SYS_pread64, descriptor, buffer, size, offset) == static_cast<long>(size);
}

}  // namespace

MEM_ELF_IDENTITY MEM_ELF_IDENTITY::of_memory(void const* start, std::uintptr_t bias) {
  MEM_ELF_IDENTITY identity;
  const auto& header = *static_cast<const Elf64_Ehdr*>(start);
  constexpr std::size_t first_page = 4096;
  if (!is_elf(header) || header.e_phoff > first_page ||
      header.e_phoff + header.e_phnum * sizeof(Elf64_Phdr) > first_page)
    return identity;
  const auto* first = static_cast<unsigned char const*>(start) + header.e_phoff;
  const std::span headers(reinterpret_cast<const Elf64_Phdr*>(first), header.e_phnum);
  identity.headers = digest_of(headers);
  identity.e_type = header.e_type;
  for (const Elf64_Phdr& segment : headers)
    if (segment.p_type == PT_NOTE && segment.p_filesz <= longest_notes &&
        is_loaded(segment, headers))
      find_build_id(
          {reinterpret_cast<unsigned char const*>(bias + segment.p_vaddr), segment.p_filesz},
          identity);
  return identity;
}

MEM_ELF_IDENTITY MEM_ELF_IDENTITY::of_file(int descriptor) {
  MEM_ELF_IDENTITY identity;
  Elf64_Ehdr header;
  std::array<Elf64_Phdr, most_headers> all;
  if (!read_at(descriptor, &header, sizeof header, 0) || !is_elf(header)) return identity;
  const std::span headers(all.data(), header.e_phnum);
  if (!read_at(descriptor, headers.data(), headers.size_bytes(), header.e_phoff)) return identity;
  identity.headers = digest_of(headers);
  identity.e_type = header.e_type;
  std::array<unsigned char, longest_notes> notes;
  for (const Elf64_Phdr& segment : headers)
    if (segment.p_type == PT_NOTE && segment.p_filesz <= notes.size() &&
        read_at(descriptor, notes.data(), segment.p_filesz, segment.p_offset))
      find_build_id({notes.data(), segment.p_filesz}, identity);
  return identity;
}
