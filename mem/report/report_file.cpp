#include "mem/report/report_file.h"

#include <iostream>
#include <utility>

#include "mem/host/check.h"
#include "mem/host/message.h"
#include "mem/state/tracker_state.h"

std::string mem_report_name(char const* prefix) {
  mem_check(mem_tbb_exe_string != nullptr, "mem_tbb_exe_string != nullptr");
  return prefix + *mem_tbb_exe_string + ".log";
}

MEM_REPORT_FILE::MEM_REPORT_FILE(std::string name)
    : m_name(std::move(name)), m_stream(m_name, std::ios::out | std::ios::trunc) {}

MEM_REPORT_FILE::~MEM_REPORT_FILE() {
  if (!m_stream.is_open()) return;
  m_stream.close();
  if (!m_stream) mem_tracker_debug("report %s is incomplete: writing it failed", m_name.c_str());
}

void mem_say_on_standard_error(char const* message) { std::cerr << message << std::endl; }
