#include "mem/report/report_file.h"

#include "mem/base/check.h"
#include "mem/base/standard_error.h"
#include "mem/state/report_tag.h"

MEM_OUTPUT_PATH mem_report_path(MEM_REPORT_PLACE place,
                                std::initializer_list<std::string_view> name) {
  return place == nullptr ? MEM_OUTPUT_PATH(name) : place->path_of(name);
}

MEM_OUTPUT_PATH mem_report_path(MEM_REPORT_PLACE place, char const* prefix) {
  mem_check(mem_tbb_exe_string != nullptr, "mem_tbb_exe_string != nullptr");
  return mem_report_path(place, {prefix, mem_tbb_exe_string.load(), ".log"});
}

MEM_REPORT_FILE::MEM_REPORT_FILE(MEM_REPORT_PLACE place, const MEM_OUTPUT_PATH& path,
                                 char const* failure_message)
    : m_place(place), m_path(path), m_file(path, MEM_OUTPUT_FILE::OPEN::EMPTIED) {
  if (is_open()) return;
  if (failure_message != nullptr && m_place == nullptr)
    mem_say_on_standard_error(failure_message);
  else
    tell_trouble();
}

MEM_REPORT_FILE::~MEM_REPORT_FILE() {
  if (!is_open()) return;
  m_file.close();
  tell_trouble();
}

void MEM_REPORT_FILE::write(std::string_view piece) {
  if (is_open() && m_file.trouble() == nullptr) m_file.write(piece);
}

void MEM_REPORT_FILE::give_up() {
  if (!is_open()) return;
  m_file.write("\nMEM: this report is incomplete: out of memory\n");
  m_file.set_trouble("out of memory");
}

void MEM_REPORT_FILE::tell_trouble() {
  if (m_place == nullptr)
    m_file.say_trouble();
  else if (m_file.trouble() != nullptr)
    m_place->note_trouble(m_path.name(), m_file.trouble());
}
