#include "concordance/phase.h"

#include <cstdint>
#include <cstdio>
#include <utility>

#include "tuk_mem.h"

PHASE::PHASE(std::string name, std::string tag) : m_name(std::move(name)), m_tag(std::move(tag)) {
  mem_open_profile_bin(m_name, m_tag);
}

PHASE::~PHASE() {
  std::uint64_t start = 0;
  std::uint64_t end = 0;
  std::uint64_t peak = 0;
  mem_close_profile_bin(m_tag, &start, &end, &peak);
  if (peak != 0)
    std::printf("  phase %-9s from %7llu to %7llu bytes, at most %7llu\n", m_name.c_str(),
                static_cast<unsigned long long>(start), static_cast<unsigned long long>(end),
                static_cast<unsigned long long>(peak));
}
