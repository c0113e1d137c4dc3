// The C library's printf into a string.
#include <algorithm>
#include <array>
#include <cstdio>
#include <cstdlib>
#include <memory>

#include "include/tuk_mem.h"

namespace {

struct FREE_BLOCK {
  void operator()(void* block) const { std::free(block); }
};

int render(char* buffer, std::size_t size, const char* format, va_list args) {
  va_list copy;
  va_copy(copy, args);
  const int length = std::vsnprintf(buffer, size, format, copy);
  va_end(copy);
  return length;
}

void render_long(std::string* out, std::size_t length, const char* format, va_list args) {
  const std::unique_ptr<char, FREE_BLOCK> block(static_cast<char*>(std::calloc(length + 2, 1)));
  if (block == nullptr) return;
  const int rendered = render(block.get(), length + 1, format, args);
  if (rendered >= 0) out->assign(block.get(), std::min(static_cast<std::size_t>(rendered), length));
}

}  // namespace

void stl_vsprintf(std::string* out, const char* format, va_list args) {
  if (out == nullptr || format == nullptr) return;
  std::array<char, 8192> buffer;
  const int result = render(buffer.data(), buffer.size(), format, args);
  if (result < 0) return;
  const auto length = static_cast<std::size_t>(result);
  if (length < buffer.size())
    out->assign(buffer.data(), length);
  else
    render_long(out, length, format, args);
}

void MEM_DETAIL::stl_raw_sprintf(std::string* out, const char* format, ...) {
  va_list args;
  va_start(args, format);
  stl_vsprintf(out, format, args);
  va_end(args);
}
