// The readers of the kernel's memory files, and the queries against the real ones.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/mman.h>
#include <unistd.h>

#include <cstring>

#include "include/tuk_mem.h"
#include "mem/info/proc_files.h"
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

TEST(ProcFile, KeepsTheListedFieldsAndReportsWhatIsMissing) {
  using STAT = MEM_LINUX_PROC_PID_STAT_T;
  EXPECT_EQ(reading_of<STAT>("1 (a) R 4 5 6 7 8 9 10 11 12 13 14 15 16 17 18 19 20 21 22 23 24"),
            "0 10 12 23");
  EXPECT_EQ(reading_of<STAT>("1 (a) R 4 5 6 7 8 9 10 11 12 13"),
            "-1 10 12 0 asker: unexpected number of values found in /proc/self/stat.  Found 2, "
            "expected 3");
  EXPECT_EQ(reading_of<STAT>(""), "-1 0 0 0 asker: error opening file");
  EXPECT_EQ(reading_of<MEM_LINUX_PROC_PID_STATM_T>("1 2 3 4 5 6 7\n"), "0 1 2 3 4 6");
  EXPECT_EQ(reading_of<MEM_LINUX_PROC_PID_STATM_T>("1 2 3 4 5\n"),
            "-1 1 2 3 4 0 asker: unexpected number of values found in /proc/self/statm.  Found 4, "
            "expected 5");
  EXPECT_EQ(
      reading_of<MEM_LINUX_PROC_PID_STATUS_T>(
          "Name:\tx\nVmPeak:\t  1 kB\nVmSize:\t2 kB\nVmLck:\t3 kB\nVmPin:\t9 kB\nVmHWM:\t4 kB\n"
          "VmRSS:\t5 kB\nVmData:\t6 kB\nVmExe:\t8 kB\nVmLib:\t9 kB\nVmSwap:\t10 kB\n"
          "Threads:\t11\n"),
      "0 1 2 3 4 5 6 0 8 9 10 11");
  EXPECT_EQ(reading_of<MEM_LINUX_PROC_MEMINFO_T>(
                "MemTotal: 1 kB\nMemFree: 2 kB\nCached: 9 kB\nSwapTotal: 3 kB\nSwapFree: 4 kB\n"),
            "0 1 2 3 4");
  EXPECT_EQ(
      reading_of<MEM_LINUX_PROC_MEMINFO_T>("MemTotal: 1 kB\nMemFree: 2 kB\nSwapTotal: 3 kB\n"),
      "-1 1 2 3 0 asker: error: found 3 items, expected 4");
}

TEST(ProcessMemory, FollowsAMappingAndIsZeroForNoProcess) {
  constexpr std::size_t size = 64 << 20;
  const std::uint64_t virtual_before = mem_info_get_process_current_virtual_used();
  void* mapping = mmap(nullptr, size, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
  std::memset(mapping, 1, size);
  EXPECT_GE(mem_info_get_process_current_virtual_used(), virtual_before + size);
  EXPECT_GE(mem_info_get_process_current_working_set_size(), size);
  munmap(mapping, size);
  EXPECT_LT(mem_info_get_process_current_virtual_used(), virtual_before + size);
  EXPECT_GE(mem_info_get_process_peak_virtual_used(), virtual_before + size);
  EXPECT_GE(mem_info_get_process_peak_working_set_size(), size);
  EXPECT_EQ(mem_info_get_process_current_working_set_size(999999999), 0U);
}

}  // namespace
