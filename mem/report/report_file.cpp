#include "mem/report/report_file.h"

#include <boost/iostreams/device/null.hpp>
#include <boost/iostreams/stream.hpp>
#include <utility>

#include "mem/base/check.h"
#include "mem/host/message.h"
#include "mem/state/report_tag.h"

std::string mem_report_name(char const* prefix) {
  mem_check(mem_tbb_exe_string != nullptr, "mem_tbb_exe_string != nullptr");
  return std::string(prefix) + mem_tbb_exe_string.load() + ".log";
}

MEM_REPORT_FILE::MEM_REPORT_FILE(std::string name)
    : m_name(std::move(name)), m_stream(m_name, std::ios::out | std::ios::trunc) {}

MEM_REPORT_FILE::~MEM_REPORT_FILE() {
  if (!m_stream.is_open()) return;
  m_stream.close();
  if (!m_stream) mem_tracker_debug("report %s is incomplete: writing it failed", m_name.c_str());
}

void mem_write_report_pair(char const* first_prefix, char const* second_prefix,
                           bool (*write)(std::ostream& first, std::ostream& second)) {
  MEM_REPORT_FILE first(mem_report_name(first_prefix));
  MEM_REPORT_FILE second(mem_report_name(second_prefix));
  if (!first.is_open() && !second.is_open()) return;
  boost::iostreams::stream<boost::iostreams::null_sink> nowhere((boost::iostreams::null_sink()));
  write(first.is_open() ? first.stream() : nowhere, second.is_open() ? second.stream() : nowhere);
}
