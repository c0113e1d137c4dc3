#include "concordance/phase.h"

#include <cstdio>
#include <utility>

PHASE::PHASE(std::string name, std::string tag) : m_phase(std::move(name), std::move(tag)) {}

PHASE::~PHASE() {
  const MEM_PHASE_FIGURES figures = m_phase.close();
  if (figures.peak_bytes != 0)
    std::printf("  phase %-9s from %7llu to %7llu bytes, at most %7llu\n", m_phase.name().c_str(),
                static_cast<unsigned long long>(figures.start_bytes),
                static_cast<unsigned long long>(figures.end_bytes),
                static_cast<unsigned long long>(figures.peak_bytes));
}
