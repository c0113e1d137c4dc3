// Bounded copies into fixed buffers and ASCII case conversion.
#include <cstring>

#include "include/tuk_mem.h"

std::size_t stl_strlcpy(char* dst, const char* src, std::size_t size) {
  std::size_t copied = 0;
  for (; src[copied] != '\0' && copied + 1 < size; ++copied) dst[copied] = src[copied];
  dst[copied] = '\0';
  return copied + std::strlen(src + copied);
}

std::size_t stl_strlcat(char* dst, const char* src, std::size_t size) {
  return stl_strlncat(dst, src, SIZE_MAX, size);
}

std::size_t stl_strlncat(char* dst, const char* src, std::size_t count, std::size_t size) {
  std::size_t end = 0;
  while (end + 1 < size && dst[end] != '\0') ++end;
  std::size_t copied = 0;
  for (; copied < count && src[copied] != '\0' && end + copied + 1 < size; ++copied)
    dst[end + copied] = src[copied];
  dst[end + copied] = '\0';
  return end + copied + std::strlen(src + copied);
}

char stl_toupper(char c) { return c >= 'a' && c <= 'z' ? static_cast<char>(c - 'a' + 'A') : c; }

char stl_tolower(char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c; }

std::string& stl_toupper(std::string& text) {
  for (char& c : text) c = stl_toupper(c);
  return text;
}

std::string& stl_tolower(std::string& text) {
  for (char& c : text) c = stl_tolower(c);
  return text;
}
