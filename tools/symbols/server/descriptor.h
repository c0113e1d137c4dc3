// A descriptor that is closed with its owner.
#pragma once

#include <unistd.h>

#include <utility>

namespace symbols {

class DESCRIPTOR {
 public:
  DESCRIPTOR() = default;
  explicit DESCRIPTOR(int number) : m_number(number) {}
  DESCRIPTOR(DESCRIPTOR&& other) noexcept : m_number(std::exchange(other.m_number, -1)) {}
  DESCRIPTOR& operator=(DESCRIPTOR&& other) noexcept {
    std::swap(m_number, other.m_number);
    return *this;
  }
  ~DESCRIPTOR() {
    if (m_number >= 0) close(m_number);
  }
  DESCRIPTOR(const DESCRIPTOR&) = delete;
  DESCRIPTOR& operator=(const DESCRIPTOR&) = delete;

  int number() const { return m_number; }
  bool is_open() const { return m_number >= 0; }

 private:
  int m_number = -1;
};

}  // namespace symbols
