#include "mem/report/report_file.h"

#include <boost/iostreams/device/null.hpp>
#include <boost/iostreams/stream.hpp>
#include <new>
#include <optional>

#include "mem/base/check.h"
#include "mem/base/standard_error.h"
#include "mem/state/report_tag.h"

MEM_OUTPUT_PATH mem_report_path(char const* prefix) {
  mem_check(mem_tbb_exe_string != nullptr, "mem_tbb_exe_string != nullptr");
  return {prefix, mem_tbb_exe_string.load(), ".log"};
}

MEM_REPORT_FILE::MEM_REPORT_FILE(const MEM_OUTPUT_PATH& path, char const* failure_message)
    : m_buffer(path), m_stream(&m_buffer) {
  if (is_open()) return;
  if (failure_message != nullptr)
    mem_say_on_standard_error(failure_message);
  else
    m_buffer.file.say_trouble();
}

MEM_REPORT_FILE::~MEM_REPORT_FILE() {
  if (!is_open()) return;
  m_buffer.file.close();
  m_buffer.file.say_trouble();
}

void MEM_REPORT_FILE::give_up() {
  if (!is_open()) return;
  m_buffer.file.write("\nMEM: this report is incomplete: out of memory\n");
  m_buffer.file.set_trouble("out of memory");
}

MEM_REPORT_FILE::BUFFER::int_type MEM_REPORT_FILE::BUFFER::overflow(int_type c) {
  const char text = traits_type::to_char_type(c);
  if (traits_type::eq_int_type(c, traits_type::eof())) return traits_type::not_eof(c);
  return file.write({&text, 1}) ? c : traits_type::eof();
}

std::streamsize MEM_REPORT_FILE::BUFFER::xsputn(char const* text, std::streamsize length) {
  return file.write({text, static_cast<std::size_t>(length)}) ? length : 0;
}

void mem_write_report_pair(char const* first_prefix, char const* second_prefix,
                           bool (*write)(std::ostream& first, std::ostream& second)) {
  MEM_REPORT_FILE first(mem_report_path(first_prefix));
  MEM_REPORT_FILE second(mem_report_path(second_prefix));
  if (!first.is_open() && !second.is_open()) return;
  std::optional<boost::iostreams::stream<boost::iostreams::null_sink>> nowhere;
  const auto stream_of = [&nowhere](MEM_REPORT_FILE& file) -> std::ostream& {
    if (file.is_open()) return file.stream();
    return nowhere.emplace(boost::iostreams::null_sink());
  };
  try {
    write(stream_of(first), stream_of(second));
  } catch (const std::bad_alloc&) {
    for (MEM_REPORT_FILE* file : {&first, &second}) file->give_up();
  }
}
