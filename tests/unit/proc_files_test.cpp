// The readers of the kernel's memory files.
#include "mem/info/proc_files.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <cstring>
#include <locale>

#include "include/tuk_mem.h"
#include "tests/support/debug_lines.h"
#include "tests/support/temporary_directory.h"

namespace {

// What reading `text` gives: the result, the record's fields in their order, and the messages.
template <class RECORD>
std::string reading_of(const char* text) {
  const TEMPORARY_DIRECTORY directory;
  if (*text != '\0') write_file("file", text);
  RECORD record;
  std::ostringstream result;
  const auto said = debug_lines_of([&] { result << record.read("asker", "file"); });
  unsigned long long fields[sizeof record / sizeof(unsigned long long)];
  std::memcpy(fields, &record, sizeof record);
  for (const unsigned long long field : fields) result << " " << field;
  for (const std::string& line : said) result << " " << line;
  return result.str();
}

constexpr std::tuple<std::string (*)(const char*), const char*, const char*> rows[] = {
    {reading_of<MEM_LINUX_PROC_PID_STAT_T>,
     "1 (a) R 4 5 6 7 8 9 10 11 12 13 14 15 16 17 18 19 20 21 22 23 24", "0 10 12 23"},
    {reading_of<MEM_LINUX_PROC_PID_STAT_T>, "", "-1 0 0 0 asker: error opening file"},
    {reading_of<MEM_LINUX_PROC_PID_STATM_T>, "1 2 3 4 5 6 7\n", "0 1 2 3 4 6"},
    {reading_of<MEM_LINUX_PROC_PID_STATUS_T>,
     "Name:\tx\nVmPeak:\t  1 kB\nVmSize:\t2 kB\nVmLck:\t3 kB\nVmPin:\t9 kB\nVmHWM:\t4 kB\n"
     "VmRSS:\t5 kB\nVmData:\t6 kB\nVmExe:\t8 kB\nVmLib:\t9 kB\nVmSwap:\t10 kB\nThreads:\t11\n",
     "0 1 2 3 4 5 6 0 8 9 10 11"},
    {reading_of<MEM_LINUX_PROC_MEMINFO_T>, "MemTotal: 1 kB\nMemFree: 2 kB\nSwapTotal: 3 kB\n",
     "-1 1 2 3 0 asker: error: found 3 items, expected 4"}};

struct GROUPING : std::numpunct<char> {
  char do_thousands_sep() const override { return ','; }
  std::string do_grouping() const override { return "\1"; }
};

TEST(ProcFile, IsNamedByAPidWhateverTheGlobalLocale) {
  const std::locale former = std::locale::global({std::locale(), new GROUPING});
  EXPECT_GT(mem_info_get_process_peak_virtual_used(static_cast<unsigned long>(getpid())), 0U);
  EXPECT_THAT(debug_lines_of([] { mem_info_get_process_current_working_set_size(99999999); }),
              testing::ElementsAre(testing::EndsWith(": error opening /proc/99999999/statm")));
  std::locale::global(former);
}

TEST(ProcFile, KeepsTheListedFieldsAndReportsWhatIsMissing) {
  for (const auto& [read, text, reading] : rows) EXPECT_EQ(read(text), reading);
}

}  // namespace
