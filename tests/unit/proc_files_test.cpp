// The readers of the kernel's memory files.
#include "mem/info/proc_files.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <cstring>

#include "include/tuk_mem.h"
#include "tests/support/debug_lines.h"
#include "tests/support/grouping.h"
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

TEST(ProcFile, KeepsTheListedFieldsAndReportsWhatIsMissing) {
  for (const auto& [read, text, reading] : rows) EXPECT_EQ(read(text), reading);
}

// The figure of `key` in a file below /proc, in bytes.
std::uint64_t kernel_says(const std::string& file, const std::string& key) {
  std::istringstream text(content_of("/proc/" + file));
  for (std::string word; text >> word;)
    if (word == key && text >> word) return std::stoull(word) * 1024;
  return 0;
}

using OF_PROCESS = std::uint64_t (*)(unsigned long pid);
using OF_SELF = std::uint64_t (*)();
constexpr std::tuple<OF_PROCESS, OF_SELF, char const*> queries[] = {
    {mem_info_get_process_current_virtual_used, mem_info_get_process_current_virtual_used,
     "VmSize:"},
    {mem_info_get_process_current_working_set_size, mem_info_get_process_current_working_set_size,
     "VmRSS:"},
    {mem_info_get_process_peak_working_set_size, mem_info_get_process_peak_working_set_size,
     "VmHWM:"},
    {mem_info_get_process_peak_virtual_used_from_os, mem_info_get_process_peak_virtual_used_from_os,
     "VmPeak:"},
    {mem_info_get_process_peak_virtual_used, mem_info_get_process_peak_virtual_used, "VmPeak:"}};

// In a locale that writes the number of a process with commas.
TEST(ProcessInfo, IsWhatTheKernelSays) {
  const std::locale former = std::locale::global({std::locale(), new GROUPING});
  const pid_t child = fork();
  if (child == 0) {
    raise(SIGSTOP);
    _exit(0);
  }
  waitpid(child, nullptr, WUNTRACED);  // its figures stand still from here
  for (const auto& [of_process, of_self, key] : queries) {
    EXPECT_EQ(of_process(static_cast<unsigned long>(child)),
              kernel_says(std::to_string(child) + "/status", key))
        << key;
    EXPECT_NEAR(static_cast<double>(of_self()),
                static_cast<double>(kernel_says("self/status", key)), 4e6)
        << key;
    EXPECT_THAT(debug_lines_of([ask = of_process] { EXPECT_EQ(ask(99999999), 0U); }),
                testing::ElementsAre(testing::HasSubstr(": error opening /proc/99999999/stat")));
  }
  kill(child, SIGKILL);
  waitpid(child, nullptr, 0);
  std::locale::global(former);
}

TEST(SystemInfo, IsWhatTheKernelSays) {
  const auto in_use = [] {
    return kernel_says("meminfo", "SwapTotal:") - kernel_says("meminfo", "SwapFree:");
  };
  const std::uint64_t before = in_use();
  for (const auto query :
       {mem_info_get_system_current_physical_in_use, mem_info_get_system_current_page_file_in_use,
        mem_info_get_system_peak_physical_in_use, mem_info_get_system_peak_page_file_in_use})
    EXPECT_NEAR(static_cast<double>(query()), static_cast<double>(before), 64e6);
  rusage usage{};
  getrusage(RUSAGE_SELF, &usage);
  EXPECT_NEAR(static_cast<double>(mem_info_get_process_page_fault_count()),
              static_cast<double>(usage.ru_minflt + usage.ru_majflt), 1000);
  EXPECT_EQ(mem_getpagesize(), static_cast<std::uint64_t>(sysconf(_SC_PAGESIZE)));
}

}  // namespace
