// Call frame information that no linker has made: nothing outside of it is read, and a frame is
// left by it or not, but in bounded time.
#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <optional>
#include <vector>

#include "mem/unwind/careful_step.h"
#include "mem/unwind/cfi_entry.h"
#include "mem/unwind/frame_layout.h"

namespace {

using IMAGE = std::vector<unsigned char>;

std::uintptr_t address_in(const IMAGE& image, std::size_t offset) {
  return reinterpret_cast<std::uintptr_t>(image.data()) + offset;
}

template <class NUMBER>
void append(IMAGE& image, NUMBER number) {
  auto const* const bytes = reinterpret_cast<unsigned char const*>(&number);
  image.insert(image.end(), bytes, bytes + sizeof number);
}

// Whatever the image says of this instruction, a frame on a stack of the image is left by it.
void leave_frame_of(const IMAGE& image, std::uintptr_t pc) {
  const MEM_CFI_MEMORY memory(address_in(image, 0), address_in(image, image.size()),
                              address_in(image, 0));
  MEM_CFI_DESCRIPTION description;
  if (!description.find_in(memory, pc)) return;
  const std::optional<MEM_FRAME_LAYOUT> layout = MEM_FRAME_LAYOUT::in(description, pc);
  if (!layout) return;
  const IMAGE stack(4096, 0x40);
  MEM_WALK_POSITION position{{pc + 1, address_in(stack, 64), address_in(stack, 512)},
                             address_in(stack, stack.size())};
  if (mem_leave_frame(*layout, position) && !layout->is_signal_frame &&
      position.frame.stack_pointer > position.stack_end)
    std::abort();
}

// A header whose table leads to one function of 64 KB, described by the entries in the input, of
// which the first byte tells the size of the first: without that, few inputs would come as far as
// the instructions.
IMAGE image_around(unsigned char const* data, std::size_t size) {
  constexpr std::uint32_t header_size = 20, function_size = 1U << 16;
  const std::size_t common_size = std::min<std::size_t>(*data++, --size);
  IMAGE image{1, 0x1B, 0x03, 0x3B};
  append<std::uint32_t>(image, 0);
  append<std::uint32_t>(image, 1);
  append<std::int32_t>(image, 0);
  append(image, static_cast<std::int32_t>(header_size + 4 + common_size));
  append(image, static_cast<std::uint32_t>(common_size));
  image.insert(image.end(), data, data + common_size);
  append(image, static_cast<std::uint32_t>(12 + size - common_size));
  append(image, static_cast<std::uint32_t>(common_size + 8));
  append(image, -static_cast<std::int32_t>(image.size()));  // the function: at the header
  append(image, function_size);
  image.insert(image.end(), data + common_size, data + size);
  image.shrink_to_fit();
  return image;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(unsigned char const* data, std::size_t size) {
  if (size < 3) return 0;
  const std::size_t offset = data[0];
  IMAGE whole(data + 1, data + size);
  whole.shrink_to_fit();
  leave_frame_of(whole, address_in(whole, offset));
  const IMAGE entries = image_around(data + 1, size - 1);
  leave_frame_of(entries, address_in(entries, offset));
  return 0;
}
