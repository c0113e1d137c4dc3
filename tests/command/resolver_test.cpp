// What becomes of the frames of call paths: of modules that are there, that are gone, and that
// never were any.
#include <dlfcn.h>
#include <gmock/gmock.h>

#include <sstream>

#include "tests/command/the_command.h"
#include "tests/command/written_reports.h"
#include "tests/support/inlined_chain.h"

namespace {

using testing::AllOf, testing::HasSubstr, testing::MatchesRegex, testing::Not;

extern "C" void outermost_of_the_test() {}

// As its module's file counts it.
std::string offset_of(void const* address) {
  Dl_info info{};
  dladdr(address, &info);
  std::ostringstream offset;
  offset << "0x" << std::hex
         << static_cast<char const*>(address) - static_cast<char const*>(info.dli_fbase);
  return offset.str();
}

class FRAMES_OF_PATHS : public THE_COMMAND {
 protected:
  // From the outermost inward, each in a module of its own.
  void call(const std::string& module, const std::string& path, const std::string& offset) {
    m_modules += std::to_string(++m_count) + "\t0x1000\t4096\t\t" + module + "\t" + path + "\n";
    const std::string number = std::to_string(m_count);
    m_frames.append(number).append("\t").append(number).append("\t").append(offset).append("\n");
    m_callers += number + "\t" + std::to_string(m_count - 1) + "\t" + number + "\n";
  }
  std::string report(const std::string& beyond_limit) const {
    const std::string number = std::to_string(m_count);
    return "Call paths\t1\nsetting\tlimit\t9\nbeyond_limit\t" + beyond_limit + "\nmodules\t" +
           number + "\n" + m_modules + "frames\t" + number + "\n" + m_frames +
           "sites\t1\n1\t0x99\tgone\t/a.cpp\t5\tsite\t3\t3\t3\t1\t1\t1\ncallers\t" + number + "\n" +
           m_callers + "bins\t0\npaths\t1\n" + number + "\t1\t0\t3\t3\t3\t1\t1\t1\t0\nend\t1\n";
  }

  int m_count = 0;
  std::string m_modules, m_frames, m_callers;
};

TEST_F(FRAMES_OF_PATHS, AreNamedAsFarAsTheirModulesTellAndFoldedAsTheFiltersSay) {
  const std::string self = std::filesystem::read_symlink("/proc/self/exe").string();
  const std::string plain = PLUGINS_DIRECTORY "/libplugin_900.so";
  void* const plugin = dlopen(plain.c_str(), RTLD_NOW);
  ASSERT_NE(plugin, nullptr) << dlerror();
  auto const* const behind_call = static_cast<char const*>(chain::hundred_levels());
  write_file("note.txt", "no module");
  call("command_tests", self, offset_of(reinterpret_cast<void*>(outermost_of_the_test)));
  call("command_tests", self, offset_of(behind_call - 1));
  call("command_tests", self, "0x10");  // no code
  call("vdso", "[vdso]", "0x20");
  call("note", in("note.txt"), "0x30");
  call("stripped", PLUGINS_DIRECTORY "/libplugin_1900.so", "0x10");  // where no function is
  for (char const* const gone : {"a", "b", "c"}) call(gone, "/nowhere/" + std::string(gone), "0x1");
  call("plain", plain, offset_of(dlsym(plugin, "take_in_plugin")));
  call("gone", "/nowhere/gone", "0x98");
  write("run/mem_tbb_call_paths.x.log", report("0"));
  const auto exported = [&](const std::vector<std::string>& more = {}) {
    std::vector<std::string> words = {"export", in("run"), "--to", "folded"};
    words.insert(words.end(), more.begin(), more.end());
    return run(words);
  };

  const RUN plainly = exported({"--all-frames"});
  EXPECT_THAT(plainly.out(),
              MatchesRegex("outermost_of_the_test;chain::hundred_levels..;"
                           "void const. chain::level<100>..;void const. chain::level<99>..;.*;"
                           "void const. chain::level<1>..;command_tests.0x10;vdso.0x20;note.0x30;"
                           "stripped.0x10;a.0x1;b.0x1;c.0x1;take_in_plugin;site 3\n"));
  EXPECT_THAT(plainly.err(), AllOf(HasSubstr("\ntuk-mem: and 3 other modules can't be read\n"),
                                   Not(HasSubstr("vdso"))));
  EXPECT_THAT(exported().out(), Not(HasSubstr("+0x10;vdso"))) << "as the profiler looks through it";
  EXPECT_THAT(run({"show", in("run"), "--tree", "--json"}).out(),
              HasSubstr("\"file\":\"Unknown\",\"function\":\"take_in_plugin\""))
      << "as the report per line has it";

  const auto with_filters = [&](const std::string& file) {
    write("run/mem_tbb_run.x.log",
          "executable\t/a\npid\t5\nended\texit\nallocator\thooks\n"
          "events_not_accounted\t0\n"
          "setting\tmem_user_defined_filters_file environment " +
              in(file) + "\n");
  };
  write_file("filters",
             "filter_function void\nfilter_function outermost further text\n# filter_module a\n"
             "filter_file_basename program.cpp\nfilter_module note\nfilter_module plain\n");
  with_filters("filters");
  EXPECT_EQ(exported().out(),
            "outermost_of_the_test;vdso+0x20;stripped+0x10;a+0x1;b+0x1;c+0x1;site 3\n");
  EXPECT_EQ(exported({"--all-frames"}).out(), plainly.out());
  with_filters("missing");
  const RUN unfiltered = exported();
  EXPECT_THAT(unfiltered.out(), HasSubstr("chain::hundred_levels();void"));
  EXPECT_THAT(unfiltered.err(), HasSubstr("missing: No such file or directory: frames that these"));
}

TEST_F(FRAMES_OF_PATHS, ThatAreNotThereAreSaidToBeSo) {
  call("gone", "/nowhere/gone", "0x98");
  write("run/1/mem_tbb_call_paths.x.log", report("70"));
  write("run/2/mem_tbb_fileline.x.log", sites(site("0x1", 1, 2, "app\t/a.cpp\t5\tf(;)")));
  EXPECT_THAT(run({"show", in("run"), "--tree"}).err(),
              AllOf(HasSubstr("1 of 2 processes have no call paths"),
                    HasSubstr("of 70 allocations the callers are not known, since there were more "
                              "than 9 call paths")));
  EXPECT_EQ(run({"export", in("run"), "--to", "folded"}).out(), "site 3\napp;/a.cpp;f(,):5 200\n");
  const RUN other_figure = run({"export", in("run"), "--to", "folded", "--column", "max_bytes"});
  EXPECT_EQ(other_figure.status(), 2);
  EXPECT_THAT(other_figure.err(), HasSubstr("call paths have no column max_bytes"));
  EXPECT_THAT(run({"show", in("run/2"), "--tree"}).err(), HasSubstr("no report of call paths"));
}

}  // namespace
