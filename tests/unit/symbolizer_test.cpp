// The symbolizers: against tools that behave as a script says, and the real one.
#include <dlfcn.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/time.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <set>
#include <thread>

#include "mem/symbolizer/symbolizer_addr2line.h"
#include "mem/symbolizer/symbolizer_addr2line_inlining.h"
#include "mem/symbolizer/symbolizer_factory.h"
#include "mem/symbolizer/text_field.h"
#include "tests/support/debug_lines.h"
#include "tests/support/inlined_chain.h"
#include "tests/support/temporary_directory.h"

namespace {

using testing::AllOf, testing::Contains, testing::ElementsAre, testing::HasSubstr;
using testing::IsEmpty, testing::Not;
using PLAIN = MEM_SYMBOLIZER_ADDR2LINE::IMPL;
using INLINING = MEM_SYMBOLIZER_ADDR2LINE_INLINING::IMPL;
using FRAMES = std::vector<std::string>;

constexpr char const* both[] = {"addr2line", "addr2line_inlining"};
const FRAMES unknown = {" :0"};

FRAMES described(const MEM_ADDRESS_INFO& info, const std::vector<MEM_ADDRESS_INFO>& inlined = {}) {
  FRAMES frames = {std::string(info.function_name_buffer) + " " + info.file_name_buffer + ":" +
                   std::to_string(info.line)};
  for (const MEM_ADDRESS_INFO& frame : inlined) frames.push_back(described(frame)[0]);
  return frames;
}

// What a symbolizer says about an address, innermost frame first.
FRAMES frames_at(void const* address, char const* symbolizer = both[1]) {
  MEM_ADDRESS_INFO info{};
  std::vector<MEM_ADDRESS_INFO> inlined;
  if (!MEM_SYMBOLIZER_FACTORY::get_symbolizer(symbolizer)
           ->get_source_and_function_info(address, info, inlined))
    return {};
  return described(info, inlined);
}

TEST(Answer, IsParsedLineByLine) {
  const std::string text(600, 'x');
  const FRAMES cut = {text.substr(88) + " " + text.substr(344) + ":7"};
  const std::tuple<std::string, FRAMES, FRAMES> rows[] = {
      {"", unknown, unknown},
      {"f(int)\n/a.c:1\n", {"f(int) /a.c:1"}, {"f(int) /a.c:1"}},
      {"f\n/a.c:12 (discriminator 3)\n", {"f /a.c:12"}, {"f /a.c:12"}},
      {"f\nC:\\path\\unit:12\n", {"f C:0"}, {"f C:\\path\\unit:12"}},
      {"f\nnowhere\n:7\n", {"f :0"}, {"f :0"}},
      {"??\n/a.c:1\n", unknown, {" /a.c:1"}},
      {"f\n/a.c:1\n??\n??:0\ng\n??:0\n??\n/b.c:2\nh\nnowhere\nk\n/c.c:3\n",
       {"f /a.c:1"},
       {"f /a.c:1", "k /c.c:3"}},
      {text + "\n" + text + ":7\n", cut, cut}};
  for (const auto& [answer, plain, inlining] : rows) {
    MEM_ADDRESS_INFO info{};
    PLAIN::parse_addr2line_output(answer.c_str(), info);
    EXPECT_EQ(described(info), plain) << answer;
    std::vector<MEM_ADDRESS_INFO> inlined(3);
    INLINING::parse_addr2line_output(answer.c_str(), info, inlined);
    EXPECT_EQ(described(info, inlined), inlining) << answer;
  }
}

// The tool found in PATH is a script, which runs in this test's directory. Like the real tool, and
// unlike bash, Debian's sh writes several lines printed at once in one piece.
class SCRIPTED_TOOL : public testing::Test {
 protected:
  ~SCRIPTED_TOOL() override { MEM_SYMBOLIZER_FACTORY::end_all_tools(); }
  void script_tool(const std::string& lines) {
    MEM_SYMBOLIZER_FACTORY::end_all_tools();
    write_file("addr2line", "#!/bin/sh\n" + lines);
    std::filesystem::permissions("addr2line", std::filesystem::perms::owner_all);
    setenv("PATH", (m_directory.path + ":" + m_former_path).c_str(), 1);
  }
  void const* address = chain::three_levels();

 private:
  const TEMPORARY_DIRECTORY m_directory;
  const std::string m_former_path = std::getenv("PATH");
};

TEST_F(SCRIPTED_TOOL, InheritsNothingThatWouldProfileItAndALongAnswerIsCut) {
  script_tool(
      "{ echo $*; env; ls -l /proc/$$/fd; } >child\n"
      "while read address; do printf 'fn_%s\\nsrc.c:7\\n' $address; done\n");
  for (char const* variable :
       {"LD_PRELOAD", "KORVANE_MEM_X", "MEM_LEAK_TRACKING_IN_VX_MODE", "KEPT"})
    setenv(variable, "", 1);
  std::FILE* marker = std::fopen("inherited_marker", "w");  // not close-on-exec
  PLAIN::ADDR2LINE_HANDLE::IMPL tool("/some/file");
  char buffer[100];
  tool.get_data(0x10, buffer, 8);
  EXPECT_STREQ(buffer, "fn_10\ns");
  tool.get_data(0x12, buffer, 100);
  EXPECT_STREQ(buffer, "fn_12\nsrc.c:7\n") << "not the rest of the one before";
  std::fclose(marker);
  EXPECT_THAT(content_of("child"), testing::StartsWith("-f -C -e /some/file\n"));
  EXPECT_THAT(content_of("child"), HasSubstr("\nKEPT="));
  for (char const* absent : {"LD_PRELOAD", "KORVANE_MEM", "VX_MODE", "inherited_marker"})
    EXPECT_THAT(content_of("child"), Not(HasSubstr(absent)));
}

TEST_F(SCRIPTED_TOOL, ThatDiesLeavesItsModuleUnknownAndHarmsNobody) {
  const std::pair<char const*, FRAMES> deaths[] = {
      {"exit 0", unknown},
      {"read address; printf 'half an answer'", unknown},
      {"exec sleep 60 <&- >&-", unknown},
      {"read address; printf 'f\\n/f:1\\n'", {"f /f:1"}},
      {"", unknown}};
  for (char const* symbolizer : both)
    for (const auto& [script, first] : deaths) {
      SCOPED_TRACE(testing::Message() << symbolizer << ": " << script);
      script_tool(script);
      if (*script == '\0') setenv("PATH", "/nowhere", 1);
      const auto said = debug_lines_of([&, &first = first] {
        EXPECT_EQ(frames_at(address, symbolizer), first);
        siginfo_t ended;  // so that the second request meets a broken pipe
        waitid(P_ALL, 0, &ended, WEXITED | WNOWAIT);
        EXPECT_EQ(frames_at(address, symbolizer), unknown);
        EXPECT_EQ(waitpid(-1, nullptr, WNOHANG), -1) << "no child is left";
        EXPECT_EQ(frames_at(address, symbolizer), unknown);
      });
      EXPECT_THAT(said, ElementsAre(HasSubstr("addr2line for ")));
    }
}

// A second for the rest of an answer, and signals that interrupt every wait for it.
TEST_F(SCRIPTED_TOOL, MayAnswerInPiecesAndTheNextAnswerIsItsOwn) {
  mem_set_cfg_get_int_value_callback([](char const* name, int* usecs, int) {
    EXPECT_STREQ(name, "mem_symbolizer_addr2line_usecs");
    *usecs = 1000000;
  });
  script_tool(R"(while read address; do n=$((n + 1))
      printf "first$n\n/f:$n\n"; sleep 0.005; printf "second$n\n/s:$n\n"; done)");
  std::signal(SIGALRM, [](int) {});
  const itimerval every_millisecond{{0, 1000}, {0, 1000}};
  setitimer(ITIMER_REAL, &every_millisecond, nullptr);
  EXPECT_THAT(frames_at(address), ElementsAre("first1 /f:1", "second1 /s:1"));
  EXPECT_THAT(frames_at(address), ElementsAre("first2 /f:2", "second2 /s:2"));
  setitimer(ITIMER_REAL, nullptr, nullptr);
}

TEST_F(SCRIPTED_TOOL, MayLeaveTheRestOfAnAnswerInThePipe) {
  script_tool(R"(while read address; do n=$((n + 1))
      printf "function$n\n/f:$n\n"
      if [ $n = 1 ]; then
        while [ ! -e go_on ]; do sleep 0.01; done
        printf '%05000d\n/stale:1\n' 0
        : >written
      fi; done)");
  EXPECT_THAT(frames_at(address), ElementsAre("function1 /f:1"));
  write_file("go_on", "");
  while (!std::filesystem::exists("written")) std::this_thread::yield();
  EXPECT_THAT(frames_at(address), ElementsAre("function2 /f:2"));
}

TEST_F(SCRIPTED_TOOL, GivesEveryThreadItsOwnAnswers) {
  script_tool("while read address; do printf \"$address\\n/f:1\\n\"; done");
  const auto offset_at = [](char const* code) {
    return reinterpret_cast<std::uintptr_t>(code) - std::stoull(frames_at(code)[0], nullptr, 16);
  };
  const auto* code = static_cast<char const*>(address);
  const std::uintptr_t offset = offset_at(code);
  std::atomic<int> wrong = 0;
  std::vector<std::thread> threads;
  for (std::ptrdiff_t thread = 0; thread < 4; ++thread)
    threads.emplace_back([&, thread] {
      for (std::ptrdiff_t i = 0; i < 50; ++i) wrong += offset_at(code + 4 * i + thread) != offset;
    });
  for (std::thread& thread : threads) thread.join();
  EXPECT_EQ(wrong, 0);
}

void const* address_in(char const* library, char const* function) {
  return reinterpret_cast<void const* (*)()>(dlsym(dlopen(library, RTLD_NOW), function))();
}

TEST(RealTool, SeesEveryFrameOfAProgramALibraryAndOfC) {
  EXPECT_THAT(frames_at(chain::three_levels()),
              ElementsAre("chain::inner() /chain/inner.h:10", "chain::middle() /chain/middle.h:20",
                          "chain::outer() /chain/outer.h:30",
                          "chain::three_levels() /chain/program.cpp:70"));
  EXPECT_EQ(frames_at(address_in(INLINED_FRAMES, "address_in_library")).at(3),
            "address_in_library /chain/library.cpp:50");
  void const* in_c = address_in(INLINED_FRAMES, "address_in_c");
  EXPECT_THAT(frames_at(in_c), ElementsAre("address_in_c /chain/plain.c:61"));
  EXPECT_THAT(frames_at(in_c, "addr2line"), ElementsAre(HasSubstr("address_in_c /chain/plain.c:")));
  EXPECT_THAT(frames_at(nullptr), IsEmpty());
}

// The tool writes such an answer in blocks of 4096 bytes; only the last ends in a line end.
TEST(RealTool, TellsALongChainWholeWithoutAnyWait) {
  mem_set_cfg_get_int_value_callback([](char const*, int* usecs, int) { *usecs = 0; });
  const FRAMES frames = frames_at(chain::hundred_levels());
  ASSERT_EQ(frames.size(), 101U);
  for (std::size_t level = 1; level <= 100; ++level)
    EXPECT_EQ(frames[level - 1],
              "void const* chain::level<" + std::to_string(level) + ">() /chain/level.h:40");
  EXPECT_EQ(frames.back(), "chain::hundred_levels() /chain/program.cpp:80");
}

// Copies of one shared object under different names: as many modules.
class MANY_MODULES : public testing::Test {
 protected:
  MANY_MODULES() {
    for (std::size_t i = 0; i < addresses.size(); ++i) {
      const std::string copy = "./libcopy" + std::to_string(100 + i) + ".so";
      std::filesystem::copy_file(INLINED_FRAMES, copy);
      addresses[i] = address_in(copy.c_str(), "address_in_library");
    }
  }
  // The numbers of the modules of this process's children.
  static std::set<int> with_a_tool() {
    std::set<int> modules;
    for (const auto& process : std::filesystem::directory_iterator("/proc")) {
      const std::string status = content_of(process.path() / "status");
      if (status.find("\nPPid:\t" + std::to_string(getpid()) + "\n") == std::string::npos) continue;
      const std::string words = content_of(process.path() / "cmdline");
      modules.insert(std::stoi(words.substr(words.rfind("libcopy") + 8)));
    }
    return modules;
  }
  std::array<void const*, 40> addresses{};

 private:
  TEMPORARY_DIRECTORY m_directory;
};

TEST_F(MANY_MODULES, TakeTheToolsThatAreLeastRecentlyUsed) {
  for (char const* symbolizer : both) {
    for (void const* address : addresses)
      EXPECT_THAT(frames_at(address, symbolizer).back(), HasSubstr("/chain/")) << symbolizer;
    frames_at(addresses[8], symbolizer);
    frames_at(addresses[7], symbolizer);  // instead of 9, the oldest now
    EXPECT_EQ(with_a_tool().size(), 32U) << symbolizer;
    EXPECT_THAT(with_a_tool(), AllOf(Contains(7), Contains(8), Not(Contains(9)))) << symbolizer;
    MEM_SYMBOLIZER_FACTORY::end_all_tools();
  }
}

TEST_F(MANY_MODULES, NeverTakeAToolInUse) {
  std::vector<INLINING::CACHE::HANDLE> in_use;
  for (std::size_t i = 0; i < 32; ++i) {
    MEM_ADDRESS_INFO info{};
    EXPECT_TRUE(mem_get_module_info(addresses[i], info));
    in_use.push_back(INLINING::CACHE::singleton_instance.take_handle(info));
  }
  frames_at(addresses[32]);
  EXPECT_EQ(with_a_tool().size(), 33U);
  frames_at(addresses[33]);  // instead of 32, the only idle one
  EXPECT_EQ(with_a_tool().size(), 33U);
  EXPECT_THAT(with_a_tool(), Not(Contains(32)));
  MEM_SYMBOLIZER_FACTORY::end_all_tools();
  EXPECT_EQ(with_a_tool().size(), 32U);
}

}  // namespace
