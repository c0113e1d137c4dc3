// Module names, answers of the tool, and a tool that misbehaves.
#include <dlfcn.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>

#include "mem/symbolizer/symbolizer_addr2line.h"
#include "mem/symbolizer/symbolizer_factory.h"
#include "tests/support/debug_lines.h"
#include "tests/support/stand_in_allocator.h"
#include "tests/support/temporary_directory.h"

namespace {

using IMPL = MEM_SYMBOLIZER_ADDR2LINE::IMPL;
using TOOL = IMPL::ADDR2LINE_HANDLE::IMPL;
using testing::AllOf, testing::HasSubstr, testing::Not, testing::StartsWith;

std::string module_name_of(const std::string& path) {
  char name[65];
  const bool has_suffix = mem_short_module_name(path.c_str(), name);
  return (has_suffix ? "so " : "") + std::string(name);
}

TEST(ModuleName, IsTheFileNameWithoutLibAndSuffix) {
  EXPECT_EQ(module_name_of("/usr/lib/libfoo_bar.so.3"), "so foo_bar");
  EXPECT_EQ(module_name_of("/usr/bin/tool"), "tool");
  EXPECT_EQ(module_name_of("libfoo.so"), "so foo");
  EXPECT_EQ(module_name_of("/opt/a.so/libtool"), "tool");
  EXPECT_EQ(module_name_of("/lib/libliba.so.1.so"), "so liba");
  EXPECT_EQ(module_name_of("/lib/lib.so"), "so ");
  EXPECT_EQ(module_name_of(std::string(70, 'x')), std::string(64, 'x'));
}

std::string parsed(const std::string& text) {
  MEM_ADDRESS_INFO info{};
  if (!IMPL::parse_addr2line_output(text.c_str(), info)) return "unknown";
  return std::string(info.function_name_buffer) + "|" + info.file_name_buffer + "|" +
         std::to_string(info.line);
}

TEST(Answer, IsParsedIntoFunctionFileAndLine) {
  EXPECT_EQ(parsed("f(int)\n/a.cpp:12\n"), "f(int)|/a.cpp|12");
  EXPECT_EQ(parsed("f\n/a.cpp:12 (discriminator 3)\n"), "f|/a.cpp|12");
  EXPECT_EQ(parsed("f\n/a.cpp:?\n"), "f|/a.cpp|0");
  EXPECT_EQ(parsed("f\n??:0\n"), "f||0");
  EXPECT_EQ(parsed("f\nno colon\n:7\n"), "f||0");
  EXPECT_EQ(parsed("??\n/a.cpp:12\n"), "unknown");
  EXPECT_EQ(parsed("no newline"), "unknown");
  EXPECT_EQ(parsed(""), "unknown");
  const std::string text(600, 'x');
  EXPECT_EQ(parsed(text + "\n" + text + ":7\n"), text.substr(88) + "|" + text.substr(344) + "|7");
}

constexpr const char* answering =
    "while read address; do printf 'fn_%s\\nsrc.c:7\\n' $address; done\n";

// Makes the tool found in PATH a script, in the current directory.
void script_tool(const std::string& lines) {
  write_file("addr2line", "#!/bin/sh\n" + lines);
  std::filesystem::permissions("addr2line", std::filesystem::perms::owner_all);
  static const std::string former_path = std::getenv("PATH");
  setenv("PATH", (std::filesystem::current_path().string() + ":" + former_path).c_str(), 1);
}

std::string answer_of(TOOL& tool, unsigned long long address, unsigned long size = 2048) {
  std::string buffer(size, 'x');
  tool.get_data(address, buffer.data(), size);
  return buffer.substr(0, buffer.find('\0'));
}

bool has_children() { return waitpid(-1, nullptr, WNOHANG) != -1; }

TEST(Tool, InheritsNothingThatWouldProfileItAndALongAnswerIsCut) {
  const TEMPORARY_DIRECTORY directory;
  script_tool("{ echo $*; env; ls -l /proc/$$/fd; } >child\n" + std::string(answering));
  for (const char* variable :
       {"LD_PRELOAD", "KORVANE_MEM_X", "MEM_LEAK_TRACKING_IN_VX_MODE", "KEPT"})
    setenv(variable, "", 1);
  std::FILE* marker = std::fopen("inherited_marker", "w");  // not close-on-exec
  TOOL tool("/some/file");
  EXPECT_EQ(answer_of(tool, 0xABC), "fn_abc\nsrc.c:7\n");
  EXPECT_EQ(answer_of(tool, 0x10, 8), "fn_10\ns");
  EXPECT_EQ(answer_of(tool, 0x11, 5), "fn_1");
  EXPECT_EQ(answer_of(tool, 0x12), "fn_12\nsrc.c:7\n") << "not the rest of the one before";
  std::fclose(marker);
  EXPECT_THAT(content_of("child"),
              AllOf(StartsWith("-f -C -e /some/file\n"), HasSubstr("\nKEPT=")));
  for (const char* absent : {"LD_PRELOAD", "KORVANE_MEM", "VX_MODE", "inherited_marker"})
    EXPECT_THAT(content_of("child"), Not(HasSubstr(absent)));
}

TEST(Tool, ThatDiesLeavesItsModuleUnknownAndHarmsNobody) {
  const TEMPORARY_DIRECTORY directory;
  const std::string deaths[][2] = {{"exit 0\n", ""},
                                   {"exec 0<&- 1>&-; sleep 9\n", ""},
                                   {"read address; echo half\n", "half\n"},
                                   {"read address; printf 'f\\na:1\\n'\n", "f\na:1\n"}};
  std::signal(SIGPIPE, SIG_DFL);
  for (const auto& row : deaths) {
    const std::string& script = row[0];
    script_tool(script);
    const auto said = debug_lines_of([&] {
      TOOL tool("/some/file");
      siginfo_t ended;  // so that the first request meets a broken pipe
      if (script == "exit 0\n") waitid(P_ALL, 0, &ended, WEXITED | WNOWAIT);
      EXPECT_EQ(answer_of(tool, 1), row[1]) << script;
      EXPECT_EQ(answer_of(tool, 2), "") << script;
      EXPECT_FALSE(has_children()) << script;
      EXPECT_EQ(answer_of(tool, 3), "") << script;
    });
    EXPECT_EQ(said.size(), 1U) << script;
  }
  setenv("PATH", "/nowhere", 1);
  EXPECT_THAT(debug_lines_of([] {
                TOOL missing("/some/file");
                EXPECT_EQ(answer_of(missing, 1), "");
                EXPECT_EQ(answer_of(missing, 2), "");
              }),
              testing::ElementsAre(HasSubstr("addr2line for /some/file ")));
}

void in_the_executable() {}

TEST(Symbolizer, AsksForTheOffsetInTheFileAndEndsItsTools) {
  EXPECT_EQ(MEM_SYMBOLIZER_FACTORY::get_symbolizer("Addr2line"), nullptr);
  MEM_SYMBOLIZER* symbolizer = MEM_SYMBOLIZER_FACTORY::get_symbolizer("addr2line");
  const TEMPORARY_DIRECTORY directory;
  script_tool(answering);
  for (void const* address : {reinterpret_cast<void const*>(in_the_executable),
                              reinterpret_cast<void const*>(STAND_IN::allocate)}) {
    Dl_info loader;
    dladdr(address, &loader);
    std::ostringstream function;
    function << "fn_" << std::hex
             << static_cast<char const*>(address) - static_cast<char*>(loader.dli_fbase);
    MEM_ADDRESS_INFO info{};
    EXPECT_TRUE(symbolizer->get_source_and_function_info(address, info));
    EXPECT_EQ(info.function_name_buffer, function.str());
    EXPECT_THAT(loader.dli_fname, HasSubstr(info.module_name_buffer));
  }
  EXPECT_TRUE(has_children());
  IMPL::CACHE::singleton_instance.clear();
  EXPECT_FALSE(has_children());
  MEM_ADDRESS_INFO info{};
  EXPECT_FALSE(symbolizer->get_source_and_function_info(nullptr, info));
  EXPECT_FALSE(symbolizer->get_source_and_function_info(&info, info)) << "in no module";
}

}  // namespace
