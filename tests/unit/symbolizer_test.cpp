// The symbolizers: against tools that behave as a script says, and the real one.
#include <dlfcn.h>
#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <unistd.h>

#include <csignal>
#include <set>
#include <thread>

#include "mem/symbolizer/answer_text.h"
#include "mem/symbolizer/module_info.h"
#include "mem/symbolizer/symbolizer_addr2line.h"
#include "mem/symbolizer/symbolizer_addr2line_inlining.h"
#include "mem/symbolizer/symbolizer_factory.h"
#include "mem/symbolizer/text_field.h"
#include "tests/support/debug_lines.h"
#include "tests/support/inlined_chain.h"
#include "tests/support/processes.h"
#include "tests/support/temporary_directory.h"

namespace {

using testing::AllOf, testing::Contains, testing::ElementsAre, testing::HasSubstr;
using testing::IsEmpty, testing::Not;
using PLAIN = MEM_SYMBOLIZER_ADDR2LINE::IMPL;
using INLINING = MEM_SYMBOLIZER_ADDR2LINE_INLINING::IMPL;
using FRAMES = std::vector<std::string>;

constexpr char const* both[] = {"addr2line", "addr2line_inlining"};
constexpr char const* known_end = "ffffffffffffffff) printf '??\\n??:0\\n';;";
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

void const* address_in(char const* library, char const* function) {
  return reinterpret_cast<void const* (*)()>(dlsym(dlopen(library, RTLD_NOW), function))();
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

// However it is cut into pieces, an answer ends with the mark behind it, and no sooner.
TEST(AnswerText, KnowsItsEndWhereverItIsCut) {
  const std::string mark(mem_end_mark);
  const std::string answers[] = {"f\n/a.c:1\n", mark, "??\n/a.c:0\n", "f\n??:?\ng\n??:0\n",
                                 "??\n??:0 (discriminator 1)\n"};
  for (const std::string& answer : answers)
    for (std::size_t first = 0; first <= answer.size(); ++first) {
      for (const std::size_t size : {std::size_t{100}, std::size_t{5}}) {
        std::array<char, 100> buffer{};
        MEM_ANSWER_TEXT text(buffer.data(), size);
        const std::string all = answer + mark;
        text.take(all.substr(0, first));
        text.take(all.substr(first, answer.size() + mark.size() - first - 1));
        EXPECT_FALSE(text.has_end_mark()) << answer << first;
        text.take("\n");
        EXPECT_TRUE(text.has_end_mark()) << answer << first;
        text.finish();
        EXPECT_EQ(buffer.data(), answer.substr(0, size - 1)) << first;
      }
    }
}

// The tool found in PATH is a script, which runs in this test's directory. Like the real tool, and
// unlike bash, Debian's sh writes several lines printed at once in one piece.
class SCRIPTED_TOOL : public testing::Test {
 protected:
  ~SCRIPTED_TOOL() override {
    MEM_SYMBOLIZER_FACTORY::end_all_tools();
    setenv("PATH", m_former_path.c_str(), 1);
  }
  void script_tool(const std::string& lines) {
    MEM_SYMBOLIZER_FACTORY::end_all_tools();
    write_file("addr2line", "#!/bin/sh\n" + lines);
    std::filesystem::permissions("addr2line", std::filesystem::perms::owner_all);
    setenv("PATH", (m_directory.path + ":" + m_former_path).c_str(), 1);
  }
  // A module of its own: tools that fail are counted by module.
  void const* script_tool_of_a_copy(const std::string& lines) {
    const std::string copy = directory() + "/libcopy" + std::to_string(++m_copies) + ".so";
    std::filesystem::copy_file(INLINED_FRAMES, copy);
    script_tool(lines);
    return address_in(copy.c_str(), "address_in_library");
  }
  const std::string& directory() const { return m_directory.path; }
  void const* address = chain::hundred_levels();

 private:
  int m_copies = 0;
  const TEMPORARY_DIRECTORY m_directory;
  const std::string m_former_path = std::getenv("PATH");
};

TEST_F(SCRIPTED_TOOL, InheritsNothingOfItsHostAndIsOutOfTheWay) {
  script_tool(
      "{ printf '<%s>' \"$@\"; env; ls -l /proc/$$/fd; ps -o sid= $$; echo $$; } >child\n"
      "while read address; do printf 'f\\n/f:1\\n'; done\n");
  for (char const* variable :
       {"LD_PRELOAD", "KORVANE_MEM_X", "MEM_LEAK_TRACKING_IN_VX_MODE", "KEPT"})
    setenv(variable, "", 1);
  std::FILE* marker = std::fopen("inherited_marker", "w");  // not close-on-exec
  std::filesystem::create_directory("a \\directory");
  std::filesystem::copy_file(INLINED_FRAMES, "a \\directory/libcopy.so");
  EXPECT_EQ(frames_at(address_in("a \\directory/libcopy.so", "address_in_c"))[0], "f /f:1");
  std::fclose(marker);
  const std::string child = content_of("child");
  EXPECT_THAT(
      child, testing::StartsWith("<-f><-C><-i><-e><" + directory() + "/a \\directory/libcopy.so>"));
  EXPECT_THAT(child, HasSubstr("\nKEPT="));
  for (char const* absent : {"LD_PRELOAD", "KORVANE_MEM", "VX_MODE", "inherited_marker"})
    EXPECT_THAT(child, Not(HasSubstr(absent)));
  const int lowest = open("/dev/null", O_RDONLY | O_CLOEXEC);
  EXPECT_LT(lowest, 10) << "low numbers are free";
  close(lowest);
}

TEST_F(SCRIPTED_TOOL, ThatDiesOrFallsSilentLeavesItsModuleUnknownAndCostsALimitedTime) {
  MEM_ADDR2LINE_TOOL::most_time = std::chrono::milliseconds(100);
  const std::string answer = "read address; printf 'f\\n/f:1\\n'; ";
  const std::string but_known_end =
      std::string("while read address; do case $address in ") + known_end;
  const std::tuple<std::string, FRAMES, bool, std::size_t> rows[] = {
      {"exit 0", unknown, true, 3},
      {answer + "read address; printf 'half an answer'", unknown, true, 3},
      {answer + "exec sleep 60 <&- >&-", unknown, false, 3},
      {answer + answer, {"f /f:1"}, true, 3},
      {"", unknown, false, 1},
      {"while :; do sleep 1; done", unknown, false, 3},
      {but_known_end + " *) printf f;; esac; done", unknown, false, 3},
      {but_known_end + " *) while :; do echo f; done;; esac; done", unknown, false, 3}};
  for (char const* symbolizer : both)
    for (const auto& [script, first, dies, messages] : rows) {
      SCOPED_TRACE(testing::Message() << symbolizer << ": " << script);
      void const* code = script_tool_of_a_copy(script);
      if (script.empty()) setenv("PATH", "/nowhere", 1);
      const auto start = std::chrono::steady_clock::now();
      const auto said = debug_lines_of([&, &first = first, dies = dies] {
        EXPECT_EQ(frames_at(code, symbolizer), first);
        while (dies && !processes_in(directory()).empty()) std::this_thread::yield();
        for (int i = 0; i < 20; ++i) frames_at(code, symbolizer);
        EXPECT_EQ(frames_at(code, symbolizer), unknown);
      });
      EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(10));
      EXPECT_EQ(said.size(), messages);
      EXPECT_THAT(said.back(), AllOf(HasSubstr("addr2line for "), HasSubstr("stay unknown")));
      EXPECT_THAT(processes_in(directory()), IsEmpty());
      MEM_ADDR2LINE_TOOL::silent_in_a_row = 0;
    }
}

// Pieces that come late, answers beyond every buffer, and no wait at all: the end mark tells.
TEST_F(SCRIPTED_TOOL, ThatKnowsTheEndMarkNeverGivesAnAnswerToTheNext) {
  mem_set_cfg_get_int_value_callback([](char const*, int* usecs, int) { *usecs = 0; });
  for (char const* symbolizer : both) {
    void const* code = script_tool_of_a_copy(
        std::string("while read address; do case $address in ") + known_end +
        R"( *) n=$((n + 1)); printf "first$n\n"; sleep 0.02; printf "/f:$n\n"; sleep 0.02
            i=0; while [ $n = 2 ] && [ $i -lt 40 ]; do
              i=$((i + 1)); printf '%05000d\n/long:1\n' 0; done
            printf "last$n\n/l:$n\n";; esac; done)");
    EXPECT_THAT(frames_at(code, symbolizer)[0], "first1 /f:1");
    EXPECT_THAT(frames_at(code, symbolizer)[0], "first2 /f:2");
    EXPECT_THAT(frames_at(code, symbolizer)[0], "first3 /f:3");
  }
  EXPECT_THAT(frames_at(address), ElementsAre("first1 /f:1", "last1 /l:1"));
}

// What a host does that closes all it does not know, and opens its own.
TEST_F(SCRIPTED_TOOL, WhoseDescriptorsTheHostTakesIsStartedAgainAndTouchesNothing) {
  script_tool("while read address; do printf 'f\\n/f:1\\n'; done");
  int sockets[2];
  ASSERT_EQ(socketpair(AF_UNIX, SOCK_STREAM, 0, sockets), 0);
  const auto owned = [] {
    std::vector<int> numbers;
    for (const auto& entry : std::filesystem::directory_iterator("/proc/self/fd"))
      if (const int number = std::stoi(entry.path().filename()); number > 700)
        numbers.push_back(number);
    return numbers;
  };
  for (char const* symbolizer : both) {
    EXPECT_THAT(frames_at(address, symbolizer), ElementsAre("f /f:1"));
    const std::vector<int> taken = owned();
    EXPECT_EQ(taken.size(), 3U);
    for (const int number : taken) EXPECT_EQ(dup2(sockets[0], number), number);
    EXPECT_THAT(frames_at(address, symbolizer), ElementsAre("f /f:1"));
    MEM_SYMBOLIZER_FACTORY::end_all_tools();
    EXPECT_EQ(owned(), taken) << "the host's";
    for (const int number : taken) close(number);
  }
  char byte = 0;
  EXPECT_EQ(recv(sockets[1], &byte, 1, MSG_DONTWAIT), -1) << "something was written to the socket";
}

// Without the end mark: a second for the rest of an answer, signals that interrupt every wait, and
// what comes later left in the pipe.
TEST_F(SCRIPTED_TOOL, MayAnswerInPiecesAndTheNextAnswerIsItsOwn) {
  mem_set_cfg_get_int_value_callback([](char const* name, int* usecs, int) {
    EXPECT_STREQ(name, "mem_symbolizer_addr2line_usecs");
    *usecs = 1000000;
  });
  script_tool(R"(while read address; do n=$((n + 1))
      printf "first$n\n/f:$n\n"; sleep 0.005; printf "second$n\n/s:$n\n"
      if [ $n = 2 ]; then
        while [ ! -e go_on ]; do sleep 0.01; done
        printf '%05000d\n/stale:1\n' 0
        : >written
      fi; done)");
  std::signal(SIGALRM, [](int) {});
  const itimerval every_millisecond{{0, 1000}, {0, 1000}};
  setitimer(ITIMER_REAL, &every_millisecond, nullptr);
  // The first was the question for the end mark.
  EXPECT_THAT(frames_at(address), ElementsAre("first2 /f:2", "second2 /s:2"));
  write_file("go_on", "");
  while (!std::filesystem::exists("written")) std::this_thread::yield();
  EXPECT_THAT(frames_at(address), ElementsAre("first3 /f:3", "second3 /s:3"));
  setitimer(ITIMER_REAL, nullptr, nullptr);
}

TEST_F(SCRIPTED_TOOL, BelongsToAFileAndToNoOtherOfItsName) {
  script_tool("for path; do :; done; while read address; do printf \"${path%/*}\\n/f:1\\n\"; done");
  for (char const* symbolizer : both)
    for (const std::string place : {"a", "b"}) {
      std::filesystem::create_directory(place);
      const std::string copy = directory() + "/" + place + "/libplug.so";
      if (!std::filesystem::exists(copy)) std::filesystem::copy_file(INLINED_FRAMES, copy);
      EXPECT_EQ(frames_at(address_in(copy.c_str(), "address_in_c"), symbolizer)[0],
                directory() + "/" + place + " /f:1");
    }
}

TEST(AModule, IsUnknownWhileAnotherFileStandsInItsPlace) {
  const TEMPORARY_DIRECTORY directory;
  const auto fill = [](char const* how) {
    std::filesystem::remove_all("libcopy.so");
    if (std::system(how) != 0) std::abort();
  };
  std::filesystem::copy_file(INLINED_FRAMES, "original");
  fill("cp original libcopy.so");
  void const* code = address_in("./libcopy.so", "address_in_c");
  MEM_ADDRESS_INFO first{};
  for (int question = 0; question < 40; ++question) {  // the first are answered without an index
    EXPECT_TRUE(mem_get_module_info(code, first));
    EXPECT_STREQ(first.symbol_name, "address_in_c");
  }
  const auto said = debug_lines_of([&] {
    for (char const* how : {"true", ": >libcopy.so", "cp /bin/true libcopy.so", "mkfifo libcopy.so",
                            "head -c 9000 original >libcopy.so", "mkdir libcopy.so"}) {
      fill(how);
      const bool still_the_same = std::string(how).starts_with("head");  // by all that can be seen
      EXPECT_EQ(frames_at(code).empty(), !still_the_same) << how;
      MEM_SYMBOLIZER_FACTORY::end_all_tools();
      fill("cp original libcopy.so");
      std::filesystem::current_path("/");
      EXPECT_THAT(frames_at(code), ElementsAre("address_in_c /chain/plain.c:61")) << how;
      std::filesystem::current_path(directory.path);
    }
  });
  EXPECT_THAT(said, ElementsAre(HasSubstr("module ./libcopy.so is not the file that was loaded")));
  MEM_ADDRESS_INFO last{};
  EXPECT_TRUE(mem_get_module_info(code, last));
  EXPECT_EQ(last.module_path, first.module_path);
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
  EXPECT_THAT(frames_at(nullptr), IsEmpty());
}

TEST(ManyModules, TakeTheToolsThatAreLeastRecentlyUsedAndNeverOneInUse) {
  const TEMPORARY_DIRECTORY directory;
  std::vector<void const*> addresses;
  for (int module = 100; module < 140; ++module) {
    const std::string copy = directory.path + "/libcopy" + std::to_string(module) + ".so";
    std::filesystem::copy_file(INLINED_FRAMES, copy);
    addresses.push_back(address_in(copy.c_str(), "address_in_library"));
  }
  const auto with_a_tool = [&] {
    std::set<int> modules;
    for (const pid_t process : processes_in(directory.path)) {
      const std::string words = content_of("/proc/" + std::to_string(process) + "/cmdline");
      if (const auto name = words.rfind("libcopy"); name != std::string::npos)
        modules.insert(std::stoi(words.substr(name + 8)));
    }
    return modules;
  };
  for (char const* symbolizer : both) {
    for (void const* address : addresses)
      EXPECT_THAT(frames_at(address, symbolizer).back(), HasSubstr("/chain/")) << symbolizer;
    frames_at(addresses[8], symbolizer);
    frames_at(addresses[7], symbolizer);  // instead of 9, the oldest now
    EXPECT_EQ(with_a_tool().size(), 32U) << symbolizer;
    EXPECT_THAT(with_a_tool(), AllOf(Contains(7), Contains(8), Not(Contains(9)))) << symbolizer;
    MEM_SYMBOLIZER_FACTORY::end_all_tools();
  }
  std::vector<INLINING::CACHE::HANDLE> in_use;
  for (std::size_t i = 0; i < 32; ++i) {
    MEM_ADDRESS_INFO info{};
    frames_at(addresses[i]);
    EXPECT_TRUE(mem_get_module_info(addresses[i], info));
    in_use.push_back(INLINING::CACHE::singleton_instance.take_handle(
        info, MEM_MODULE_FILE::of_path(info.module_path)));
  }
  frames_at(addresses[32]);
  EXPECT_EQ(with_a_tool().size(), 33U);
  frames_at(addresses[33]);  // instead of 32, the only idle one
  EXPECT_EQ(with_a_tool().size(), 33U);
  EXPECT_THAT(with_a_tool(), Not(Contains(32)));
}

}  // namespace
