#include "line_store/line_store.h"

#include <cstring>
#include <fstream>

bool LINE_STORE::read(const std::string& path) {
  std::ifstream file(path);
  if (!file) return false;
  for (std::string text; std::getline(file, text);) append(text);
  return true;
}

void LINE_STORE::append(const std::string& text) {
  const std::size_t size = text.size() + 1;
  LINE line(new char[size]);
  std::memcpy(line.get(), text.c_str(), size);
  m_requested_bytes += size;
  m_lines.push_back(std::move(line));
}
