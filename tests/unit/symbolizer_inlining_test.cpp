// The inlining symbolizer: against tools that misbehave as a script says, and the real one.
#include <dlfcn.h>
#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/time.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include "mem/symbolizer/symbolizer_addr2line_inlining.h"
#include "mem/symbolizer/symbolizer_factory.h"
#include "mem/symbolizer/text_field.h"
#include "tests/support/inlined_chain.h"

namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using IMPL = MEM_SYMBOLIZER_ADDR2LINE_INLINING::IMPL;
using FRAMES = std::vector<std::string>;

FRAMES described(const MEM_ADDRESS_INFO& info, const std::vector<MEM_ADDRESS_INFO>& inlined) {
  FRAMES frames;
  const auto add = [&](const MEM_ADDRESS_INFO& frame) {
    frames.push_back(std::string(frame.function_name_buffer) + " " + frame.file_name_buffer + ":" +
                     std::to_string(frame.line));
  };
  add(info);
  for (const MEM_ADDRESS_INFO& frame : inlined) add(frame);
  return frames;
}

const FRAMES unknown = {" :0"};

// What the symbolizer says about an address, innermost frame first.
FRAMES frames_at(void const* address) {
  MEM_ADDRESS_INFO info{};
  std::vector<MEM_ADDRESS_INFO> inlined;
  MEM_SYMBOLIZER* symbolizer = MEM_SYMBOLIZER_FACTORY::get_default_symbolizer();
  if (!symbolizer->get_source_and_function_info(address, info, inlined)) return {};
  for (const MEM_ADDRESS_INFO& frame : inlined) EXPECT_EQ(frame.address, address);
  return described(info, inlined);
}

class TEMPORARY_DIRECTORY {
 public:
  TEMPORARY_DIRECTORY() {
    std::string name = (std::filesystem::temp_directory_path() / "tools_XXXXXX").string();
    if (mkdtemp(name.data()) == nullptr) std::abort();
    m_path = name;
  }
  TEMPORARY_DIRECTORY(const TEMPORARY_DIRECTORY&) = delete;
  TEMPORARY_DIRECTORY& operator=(const TEMPORARY_DIRECTORY&) = delete;
  ~TEMPORARY_DIRECTORY() {
    std::error_code ignored;
    std::filesystem::remove_all(m_path, ignored);
  }
  std::filesystem::path operator/(const std::string& name) const { return m_path / name; }
  std::string path() const { return m_path.string(); }

 private:
  std::filesystem::path m_path;
};

// Stands in for the real tool while it lives. The script runs in a directory of its own. Like the
// real tool, and unlike bash, Debian's sh writes several lines printed at once in one piece.
class SCRIPTED_TOOL {
 public:
  explicit SCRIPTED_TOOL(const std::string& script, const std::string& shell = "/bin/sh") {
    std::ofstream(directory / "addr2line") << "#!" << shell << "\ncd \"${0%/*}\"\n" << script;
    std::filesystem::permissions(directory / "addr2line", std::filesystem::perms::owner_all);
    setenv("PATH", (directory.path() + ":" + m_former_path).c_str(), 1);
  }
  SCRIPTED_TOOL(const SCRIPTED_TOOL&) = delete;
  SCRIPTED_TOOL& operator=(const SCRIPTED_TOOL&) = delete;
  ~SCRIPTED_TOOL() {
    MEM_SYMBOLIZER_FACTORY::end_all_tools();
    setenv("PATH", m_former_path.c_str(), 1);
  }

  const TEMPORARY_DIRECTORY directory;

 private:
  const std::string m_former_path = std::getenv("PATH");
};

// The module files of this process's children; a zombie has none and counts as "".
std::multiset<std::string> modules_with_a_tool() {
  std::multiset<std::string> modules;
  for (const auto& process : std::filesystem::directory_iterator("/proc")) {
    std::string status;
    std::getline(std::ifstream(process.path() / "status"), status, '\0');
    if (status.find("\nPPid:\t" + std::to_string(getpid()) + "\n") == std::string::npos) continue;
    std::string last;
    std::ifstream words(process.path() / "cmdline");
    for (std::string word; std::getline(words, word, '\0');) last = word;
    modules.insert(std::filesystem::path(last).filename().string());
  }
  return modules;
}

// Copies of one shared object under different names: as many modules.
class MANY_MODULES {
 public:
  static constexpr std::size_t count = 40;

  MANY_MODULES() {
    for (std::size_t i = 0; i < count; ++i) {
      const auto copy = m_directory / file_name(i);
      std::filesystem::copy_file(INLINED_FRAMES, copy);
      void* library = dlopen(copy.c_str(), RTLD_NOW | RTLD_LOCAL);
      if (library == nullptr) std::abort();
      m_addresses[i] = reinterpret_cast<void const* (*)()>(dlsym(library, "address_in_library"))();
    }
  }
  static std::string file_name(std::size_t i) { return "libcopy" + std::to_string(i) + ".so"; }
  static std::multiset<std::string> file_names(std::size_t first, std::size_t end) {
    std::multiset<std::string> names;
    for (std::size_t i = first; i < end; ++i) names.insert(file_name(i));
    return names;
  }
  void const* address(std::size_t i) const { return m_addresses[i]; }
  IMPL::CACHE::HANDLE take(std::size_t i) const {
    MEM_ADDRESS_INFO info{};
    EXPECT_TRUE(mem_get_module_info(address(i), info));
    return IMPL::CACHE::singleton_instance.take_handle(info);
  }

 private:
  TEMPORARY_DIRECTORY m_directory;
  std::array<void const*, count> m_addresses{};
};

const FRAMES frames_in_library = {
    "chain::inner() /chain/inner.h:10", "chain::middle() /chain/middle.h:20",
    "chain::outer() /chain/outer.h:30", "address_in_library /chain/library.cpp:50"};

void const* address_in_program() { RETURN_FROM_CALL(chain::here()); }

// ---- the tool as a script ---------------------------------------------------------------------

int times_asked = 0;

void wait_25_times_the_default(char const* name, int* usecs, int default_usecs) {
  EXPECT_STREQ(name, "mem_symbolizer_addr2line_usecs");
  *usecs = 25 * default_usecs;
  ++times_asked;
}

// Signals at a shorter interval than the wait, each of which interrupts it.
void interrupt_every_millisecond(bool on) {
  struct sigaction action {};
  action.sa_handler = [](int) {};
  sigaction(SIGALRM, &action, nullptr);
  const timeval period{0, on ? 1000 : 0};
  const itimerval timer{period, period};
  setitimer(ITIMER_REAL, &timer, nullptr);
}

// The pause between the pieces as the tool made it, in microseconds.
int pause_made(const SCRIPTED_TOOL& tool, int answer) {
  int usecs = 0;
  while (!(std::ifstream(tool.directory / ("pause" + std::to_string(answer))) >> usecs))
    std::this_thread::yield();
  return usecs;
}

// A machine under load stretches the pause beyond any wait: such an attempt does not count.
TEST(InliningSymbolizer, TakesAnAnswerInPiecesWholeAndTheNextAsItsOwn) {
  mem_set_cfg_get_int_value_callback(wait_25_times_the_default);
  void const* address = address_in_program();
  for (const bool interrupted : {false, true}) {
    FRAMES first;
    FRAMES second;
    int longest_pause = 0;
    do {
      const SCRIPTED_TOOL tool(R"(while read address; do n=$((n + 1)); start=$EPOCHREALTIME
          printf "first$n\n/f:$n\n"; sleep 0.005; printf "second$n\n/s:$n\n"
          echo $((${EPOCHREALTIME/[.,]/} - ${start/[.,]/})) >pause$n; done)",
                               "/bin/bash");
      interrupt_every_millisecond(interrupted);
      first = frames_at(address);
      second = frames_at(address);
      interrupt_every_millisecond(false);
      longest_pause = std::max(pause_made(tool, 1), pause_made(tool, 2));
    } while (longest_pause >= 50000);
    EXPECT_THAT(first, ElementsAre("first1 /f:1", "second1 /s:1")) << interrupted;
    EXPECT_THAT(second, ElementsAre("first2 /f:2", "second2 /s:2")) << interrupted;
  }
  EXPECT_EQ(times_asked, 1);
}

TEST(InliningSymbolizer, DropsWhatAnEarlierAnswerLeftInThePipe) {
  const SCRIPTED_TOOL tool(R"(while read address; do n=$((n + 1))
      printf "function$n\n/f:$n\n"
      if [ $n = 1 ]; then
        while [ ! -e go_on ]; do sleep 0.01; done
        printf '%05000d\n/stale:1\n' 0
        : >written
      fi; done)");
  void const* address = address_in_program();
  EXPECT_THAT(frames_at(address), ElementsAre("function1 /f:1"));
  std::ofstream(tool.directory / "go_on").flush();
  while (!std::filesystem::exists(tool.directory / "written")) std::this_thread::yield();
  EXPECT_THAT(frames_at(address), ElementsAre("function2 /f:2"));
}

TEST(InliningSymbolizer, ThreadsThatShareAToolGetTheirOwnAnswers) {
  const SCRIPTED_TOOL tool("while read address; do printf \"$address\\n/f:1\\n\"; done");
  constexpr std::size_t asked_by_each = 200;
  const auto* code = static_cast<char const*>(address_in_program());
  std::array<std::vector<FRAMES>, 4> answers;
  std::vector<std::thread> threads;
  for (std::size_t thread = 0; thread < answers.size(); ++thread)
    threads.emplace_back([&, thread] {
      for (std::size_t i = 0; i < asked_by_each; ++i)
        answers[thread].push_back(frames_at(code + answers.size() * i + thread));
    });
  for (std::thread& thread : threads) thread.join();
  for (std::size_t i = 0; i < answers.size() * asked_by_each; ++i)
    EXPECT_EQ(answers[i % answers.size()][i / answers.size()], frames_at(code + i)) << i;
}

TEST(InliningSymbolizer, ToolThatEndsLeavesAddressesUnknown) {
  struct ROW {
    char const* script;
    FRAMES first;
  };
  const ROW rows[] = {
      {"exit 0", unknown},
      {"read address; exit 0", unknown},
      {"read address; kill -9 $$", unknown},
      {"read address; printf 'half an answer'", unknown},
      {"read address; printf 'function\n/f:1\n'", {"function /f:1"}},
      {"exec sleep 60 <&- >&-", unknown},
  };
  for (const ROW& row : rows) {
    const SCRIPTED_TOOL tool(row.script);
    EXPECT_EQ(frames_at(address_in_program()), row.first) << row.script;
    EXPECT_EQ(frames_at(address_in_program()), unknown) << row.script;
    EXPECT_THAT(modules_with_a_tool(), IsEmpty()) << row.script;
  }
  MEM_SYMBOLIZER_FACTORY::end_all_tools();
  setenv("PATH", "/nonexistent", 1);
  EXPECT_EQ(frames_at(address_in_program()), unknown) << "no tool";
  EXPECT_THAT(modules_with_a_tool(), IsEmpty());
}

TEST(InliningSymbolizer, ReadsAnswersLineByLine) {
  struct ROW {
    char const* answer;
    FRAMES frames;
  };
  const ROW rows[] = {
      {"", unknown},
      {"f\n/a.c:1", unknown},
      {"f\n/a.c:1\n", {"f /a.c:1"}},
      {"f\nC:\\path\\unit:12 (discriminator 3)\n", {"f C:\\path\\unit:12"}},
      {"f\n/a.c:?\n", {"f /a.c:0"}},
      {"f\nnowhere\n", {"f :0"}},
      {"f\n??:0\n", {"f :0"}},
      {"??\n/a.c:1\n", {" /a.c:1"}},
      {"f\n/a.c:1\n??\n??:0\ng\n??:0\n??\n/b.c:2\nh\nnowhere\nk\n/c.c:3\n",
       {"f /a.c:1", "k /c.c:3"}},
      {"??\n??:0\ng\n/b.c:2\n", {" :0", "g /b.c:2"}},
      {"f\n/a.c:1\ng\n/b.c:2", {"f /a.c:1"}},
  };
  for (const ROW& row : rows) {
    MEM_ADDRESS_INFO info{};
    mem_set_text_field(info.function_name_buffer, "former");
    mem_set_text_field(info.module_name_buffer, "module");
    std::vector<MEM_ADDRESS_INFO> inlined(3);
    EXPECT_TRUE(IMPL::parse_addr2line_output(row.answer, info, inlined));
    EXPECT_EQ(described(info, inlined), row.frames) << row.answer;
    for (const MEM_ADDRESS_INFO& frame : inlined) EXPECT_STREQ(frame.module_name_buffer, "module");
  }
}

// ---- the real tool ----------------------------------------------------------------------------

TEST(InliningSymbolizer, SeesEveryFrameOfAProgramALibraryAndOfC) {
  void* library = dlopen(INLINED_FRAMES, RTLD_NOW);
  const auto call = [&](char const* function) {
    return reinterpret_cast<void const* (*)()>(dlsym(library, function))();
  };
  FRAMES frames_in_program = frames_in_library;
  frames_in_program.back() = "chain::three_levels() /chain/program.cpp:70";
  EXPECT_EQ(frames_at(chain::three_levels()), frames_in_program);
  EXPECT_EQ(frames_at(call("address_in_library")), frames_in_library);
  EXPECT_THAT(frames_at(call("address_in_c")), ElementsAre("address_in_c /chain/plain.c:61"));
  EXPECT_THAT(frames_at(nullptr), IsEmpty());
}

// The tool writes such an answer in blocks of 4096 bytes; only the last ends in a line end.
TEST(InliningSymbolizer, LongChainIsWholeWithoutAnyWait) {
  const FRAMES frames = frames_at(chain::hundred_levels());
  ASSERT_EQ(frames.size(), 101U);
  std::size_t bytes = 0;
  for (int level = 1; level <= 100; ++level) {
    const std::string& frame = frames[static_cast<std::size_t>(level - 1)];
    EXPECT_EQ(frame, "void const* chain::level<" + std::to_string(level) + ">() /chain/level.h:40");
    bytes += frame.size() + 1;
  }
  EXPECT_THAT(frames.back(), HasSubstr("chain::hundred_levels() /chain/program.cpp:80"));
  EXPECT_GT(bytes, 4096U);
}

TEST(InliningSymbolizer, LeastRecentlyUsedToolMakesRoom) {
  const MANY_MODULES modules;
  for (std::size_t i = 0; i < MANY_MODULES::count; ++i)
    EXPECT_EQ(frames_at(modules.address(i)), frames_in_library) << i;
  EXPECT_EQ(modules_with_a_tool(), MANY_MODULES::file_names(8, 40));
  EXPECT_EQ(frames_at(modules.address(8)), frames_in_library);
  EXPECT_EQ(frames_at(modules.address(0)), frames_in_library);  // instead of 9, the oldest now
  auto running = MANY_MODULES::file_names(8, 40);
  running.erase(MANY_MODULES::file_name(9));
  running.insert(MANY_MODULES::file_name(0));
  EXPECT_EQ(modules_with_a_tool(), running);
}

TEST(InliningSymbolizer, ToolInUseIsNeverTaken) {
  const MANY_MODULES modules;
  std::vector<IMPL::CACHE::HANDLE> in_use;
  for (std::size_t i = 0; i < 32; ++i) in_use.push_back(modules.take(i));
  EXPECT_EQ(frames_at(modules.address(32)), frames_in_library);
  EXPECT_EQ(modules_with_a_tool(), MANY_MODULES::file_names(0, 33));
  EXPECT_EQ(frames_at(modules.address(33)), frames_in_library);  // instead of 32, the only idle one
  auto running = MANY_MODULES::file_names(0, 34);
  running.erase(MANY_MODULES::file_name(32));
  EXPECT_EQ(modules_with_a_tool(), running);
  MEM_SYMBOLIZER_FACTORY::end_all_tools();
  EXPECT_EQ(modules_with_a_tool(), MANY_MODULES::file_names(0, 32));
  in_use.clear();
  EXPECT_THAT(modules_with_a_tool(), IsEmpty());
}

TEST(InliningSymbolizer, ThreadsAskWhileToolsAreEnded) {
  const MANY_MODULES modules;
  std::atomic<int> wrong = 0;
  std::atomic<int> asking = 4;
  const auto ask_all = [&](std::size_t first) {
    for (std::size_t i = 0; i < MANY_MODULES::count; ++i)
      if (frames_at(modules.address((first + i) % MANY_MODULES::count)) != frames_in_library)
        ++wrong;
    --asking;
  };
  std::vector<std::thread> threads;
  for (const std::size_t first : {0U, 0U, 10U, 20U}) threads.emplace_back(ask_all, first);
  while (asking > 0) {
    MEM_SYMBOLIZER_FACTORY::end_all_tools();
    usleep(20000);
  }
  for (std::thread& thread : threads) thread.join();
  MEM_SYMBOLIZER_FACTORY::end_all_tools();
  EXPECT_EQ(wrong, 0);
  EXPECT_THAT(modules_with_a_tool(), IsEmpty());
}

TEST(InliningSymbolizer, WorksBeyond1024OpenFiles) {
  constexpr rlim_t files = 1200;
  rlimit limit{};
  getrlimit(RLIMIT_NOFILE, &limit);
  if (limit.rlim_max < files + 100) GTEST_SKIP() << "only " << limit.rlim_max << " files allowed";
  limit.rlim_cur = files + 100;
  ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &limit), 0);
  for (rlim_t i = 0; i < files; ++i) ASSERT_GE(open("/dev/null", O_RDONLY | O_CLOEXEC), 0);
  EXPECT_EQ(frames_at(chain::three_levels()).size(), 4U);
}

TEST(SymbolizerFactory, KnowsEachByItsExactName) {
  const std::pair<char const*, char const*> rows[] = {{nullptr, "addr2line_inlining"},
                                                      {"default", "addr2line_inlining"},
                                                      {"addr2line", "addr2line"},
                                                      {"addr2line_inlining", "addr2line_inlining"}};
  for (const auto& [asked, name] : rows)
    EXPECT_STREQ(MEM_SYMBOLIZER_FACTORY::get_symbolizer(asked)->get_name(), name);
  EXPECT_EQ(MEM_SYMBOLIZER_FACTORY::get_symbolizer("Addr2line"), nullptr);
  EXPECT_EQ(MEM_SYMBOLIZER_FACTORY::get_symbolizer(""), nullptr);
}

}  // namespace
