// What the symbol server knows, held against addr2line's answers, and what it outlives.
#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstring>
#include <fstream>
#include <sstream>

#include "mem/symbolizer/symbol_protocol.h"
#include "tests/support/run_program.h"
#include "tools/symbols/core/answer.h"
#include "tools/symbols/core/module.h"

namespace {

using testing::HasSubstr;
namespace protocol = MEM_SYMBOL_PROTOCOL;

// Builds `lib.so` and `reference.so`, and prints what addr2line says of every byte of the latter's
// functions.
RUN built(const std::string& script) {
  const std::string print =
      "for f in $(nm -S --defined-only reference.so | grep -i \" t .*[hA]\\|address_in\" |"
      " awk \"NF==4 {print \\$1\\\":\\\"\\$2}\"); do"
      " for ((a = 16#${f%:*}; a < 16#${f%:*} + 16#${f#*:}; ++a)); do printf \"%x\\n\" $a; done; "
      "done"
      " | addr2line -f -C -i -a -e reference.so | sed \"s/ (discriminator [0-9]*)//; s/:?$/:0/\"";
  const std::string sources = std::string(SOURCES) + "/tests/support/";
  return RUN({.path = "/bin/bash",
              .arguments = {"-c", "S=\"-shared -fPIC -O2 -I" + std::string(SOURCES) + " " +
                                      sources + "inlined_frames.cpp " + sources +
                                      "plain_frame.c\"; set -e; G=\"gcc -g $S\"; " + script + "; " +
                                      print}});
}

std::string as_addr2line_prints(std::uint64_t address, const std::vector<symbols::FRAME>& frames) {
  std::ostringstream text;
  text << "0x" << std::hex;
  text.width(16);
  text.fill('0');
  text << address << std::dec << "\n";
  for (const symbols::FRAME& frame : frames)
    text << (frame.function.empty() ? "??" : frame.function) << "\n"
         << (frame.file.empty() ? "??" : frame.file) << ":" << frame.line << "\n";
  return text.str();
}

TEST(Symbols, AreThoseOfAddr2lineWhereverTheyAreKept) {
  constexpr char same[] = "; ln lib.so reference.so";
  // Of what addr2line can't read, the reference is the same code with what it can.
  constexpr char of_plain[] = "; $G -o reference.so";
  const std::pair<const char*, std::string> kinds[] = {
      {"version 5", std::string("$G -o lib.so") + same},
      {"version 4", std::string("$G -gdwarf-4 -o lib.so") + same},
      {"version 3", std::string("$G -gdwarf-3 -gstrict-dwarf -o lib.so") + same},
      {"version 2", std::string("$G -gdwarf-2 -gstrict-dwarf -o lib.so") + same},
      {"lines only", std::string("$G -g1 -o lib.so") + same},
      {"link-time optimisation", std::string("$G -flto -gdwarf-4 -o lib.so") + same},
      {"sections", std::string("$G -ffunction-sections -Wl,--gc-sections -o lib.so") + same},
      {"compressed", std::string("$G -gz -o lib.so") + of_plain},
      {"compressed, the old way", std::string("$G -gz=zlib-gnu -o lib.so") + of_plain},
      {"split", std::string("$G -gsplit-dwarf -o lib.so") + of_plain},
      {"split version 4", std::string("$G -gsplit-dwarf -gdwarf-4 -o lib.so") + of_plain},
      {"types apart", std::string("$G -fdebug-types-section -o lib.so") + of_plain},
      {"linked",
       "$G -o reference.so; objcopy --only-keep-debug reference.so lib.debug;"
       " objcopy -S --add-gnu-debuglink=lib.debug reference.so lib.so"},
      {"cached",
       "$G -Wl,--build-id=0x0123456789abcdef -o reference.so; mkdir -p cache/0123456789abcdef;"
       " objcopy --only-keep-debug reference.so cache/0123456789abcdef/debuginfo;"
       " strip reference.so -o lib.so"},
      {"stripped of lines", "$G -o reference.so; strip -g reference.so; cp reference.so lib.so"},
      {"shared by dwz",
       "command -v dwz >dwz || exit 77; $G -o lib.so; cp lib.so other.so;"
       " dwz -m common lib.so other.so; $G -o reference.so"},
      {"symbols in .gnu_debugdata",
       "$G -o lib.so; strip -g lib.so -o reference.so;"
       " strip -g lib.so -o all; xz all; strip lib.so;"
       " objcopy --add-section .gnu_debugdata=all.xz lib.so"},
      {"clang",
       "command -v clang >clang || exit 77; clang -g $S -o lib.so;"
       " clang -gdwarf-4 $S -o reference.so"},
      {"Rust",
       "command -v rustc >rustc || exit 77; echo \"#[no_mangle] pub extern fn address_in_r("
       "n: usize) -> String { (0..n).map(|i| i.to_string()).collect() }\" >lib.rs;"
       " rustc -g -O --crate-type cdylib -o lib.so lib.rs || exit 77; ln lib.so reference.so"}};
  for (const auto& [kind, script] : kinds) {
    SCOPED_TRACE(kind);
    const RUN run = built(script);
    if (run.status() == 77) continue;  // no such tool here
    ASSERT_EQ(run.status(), 0) << run.err();
    setenv("DEBUGINFOD_CACHE_PATH", (run.directory() / "cache").c_str(), 1);
    const std::string path = run.directory() / "lib.so";
    const int file = open(path.c_str(), O_RDONLY);
    const auto module = symbols::MODULE::open(file, path);
    close(file);
    ASSERT_TRUE(module);
    std::istringstream lines(run.out());
    std::string ours;
    for (std::string line; std::getline(lines, line);)
      if (line.starts_with("0x"))
        ours += as_addr2line_prints(std::stoull(line, nullptr, 16),
                                    module->look_up(std::stoull(line, nullptr, 16)));
    EXPECT_EQ(ours, run.out());
    EXPECT_THAT(ours, HasSubstr("address_in"));
  }
}

// Named after where it begins, as the symbol said that is gone.
TEST(Symbols, MissingAltogetherArePlaces) {
  const RUN run = built(
      "$G -fvisibility=hidden -o reference.so; strip reference.so -o lib.so; nm reference.so");
  ASSERT_EQ(run.status(), 0) << run.err();
  const std::string path = run.directory() / "lib.so";
  const int file = open(path.c_str(), O_RDONLY);
  const auto module = symbols::MODULE::open(file, path);
  close(file);
  ASSERT_TRUE(module);
  std::istringstream lines(run.out());
  int found = 0;
  for (std::string line; std::getline(lines, line);) {
    if (line.find(" t ") == std::string::npos || line.find("address_in") == std::string::npos)
      continue;
    ++found;
    std::string place = line.substr(0, line.find(' '));
    place.erase(0, place.find_first_not_of('0'));
    const auto inside = std::stoull(place, nullptr, 16) + 5;
    EXPECT_EQ(module->look_up(inside)[0].function, "lib.so+0x" + place) << line;
  }
  EXPECT_GT(found, 0);
}

// A server at the other end of a socket, asked by hand.
class CONNECTED_SERVER {
 public:
  CONNECTED_SERVER() {
    int pair[2];
    socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, pair);
    m_process = fork();
    if (m_process == 0) {
      dup2(pair[1], STDIN_FILENO);
      execl(SYMBOL_SERVER, SYMBOL_SERVER, "--connected", nullptr);
      _exit(127);
    }
    close(pair[1]);
    m_socket = pair[0];
  }
  CONNECTED_SERVER(const CONNECTED_SERVER&) = delete;
  CONNECTED_SERVER& operator=(const CONNECTED_SERVER&) = delete;
  ~CONNECTED_SERVER() { close(m_socket); }

  void send_bytes(std::string_view bytes, int descriptor = -1) const {
    iovec part{.iov_base = const_cast<char*>(bytes.data()), .iov_len = bytes.size()};
    alignas(cmsghdr) char control[CMSG_SPACE(sizeof descriptor)] = {};
    msghdr message{};
    message.msg_iov = &part;
    message.msg_iovlen = 1;
    if (descriptor >= 0) {
      message.msg_control = control;
      message.msg_controllen = sizeof control;
      *CMSG_FIRSTHDR(&message) = {.cmsg_len = CMSG_LEN(sizeof descriptor),
                                  .cmsg_level = SOL_SOCKET,
                                  .cmsg_type = SCM_RIGHTS};
      std::memcpy(CMSG_DATA(CMSG_FIRSTHDR(&message)), &descriptor, sizeof descriptor);
    }
    EXPECT_EQ(sendmsg(m_socket, &message, MSG_NOSIGNAL), static_cast<ssize_t>(bytes.size()));
  }
  // Its kind, and the payload; 0 at the end.
  std::pair<std::uint32_t, std::string> answer() const {
    protocol::HEADER header{};
    if (recv(m_socket, &header, sizeof header, MSG_WAITALL) != sizeof header) return {};
    std::string payload(header.payload, '\0');
    recv(m_socket, payload.data(), payload.size(), MSG_WAITALL);
    return {header.kind, payload};
  }
  std::uint32_t open_module(const std::string& path) const {
    const int file = open(path.c_str(), O_RDONLY | O_CLOEXEC);
    send_bytes(frame(protocol::open_module, path), file);
    close(file);
    return answer().first;
  }
  std::pair<std::uint32_t, std::string> look_up(std::uint32_t module, std::uint64_t address) const {
    send_bytes(frame(protocol::look_up, bytes(module) + bytes(1U) + bytes(address)));
    return answer();
  }
  int end() {
    shutdown(m_socket, SHUT_RDWR);
    int status = -1;
    waitpid(m_process, &status, 0);
    return status;
  }
  // The process that reads the module.
  void kill_worker() const {
    const std::string number = std::to_string(m_process);
    pid_t child = 0;
    std::ifstream("/proc/" + number + "/task/" + number + "/children") >> child;
    ASSERT_GT(child, 0);
    kill(child, SIGKILL);
  }

  template <class VALUE>
  static std::string bytes(VALUE value) {
    return {reinterpret_cast<char const*>(&value), sizeof value};
  }
  static std::string frame(std::uint32_t kind, const std::string& payload) {
    return bytes(protocol::HEADER{.magic = protocol::magic,
                                  .kind = kind,
                                  .number = 1,
                                  .payload = static_cast<std::uint32_t>(payload.size())}) +
           payload;
  }

 private:
  pid_t m_process = 0;
  int m_socket = -1;
};

TEST(SymbolServer, EndsTheConnectionThatBreaksTheRules) {
  const auto frame = CONNECTED_SERVER::frame;
  const auto word = [](std::uint32_t value) { return CONNECTED_SERVER::bytes(value); };
  std::string oversized = frame(protocol::look_up, "");
  oversized.replace(12, 4, word(protocol::most_payload + 1));
  const std::pair<const char*, std::string> rows[] = {
      {"no frame", std::string(64, 'x')},
      {"unknown kind", frame(77, "")},
      {"an answer", frame(protocol::answers, "")},
      {"oversized", oversized},
      {"no descriptor", frame(protocol::open_module, "/bin/true")},
      {"no such module", frame(protocol::look_up, word(5) + word(1) + std::string(8, '\0'))},
      {"short", frame(protocol::look_up, word(0))},
      {"no addresses", frame(protocol::look_up, word(0) + word(0))},
      {"other count", frame(protocol::look_up, word(0) + word(2) + std::string(8, '\0'))}};
  for (const auto& [name, bytes] : rows) {
    SCOPED_TRACE(name);
    CONNECTED_SERVER server;
    EXPECT_EQ(server.open_module(SYMBOL_SERVER), protocol::opened);
    server.send_bytes(bytes);
    const std::string misuse = word(protocol::REFUSAL::misuse);
    EXPECT_EQ(server.answer(), std::pair(std::uint32_t{protocol::refused}, misuse));
    EXPECT_EQ(server.answer().first, 0U);
    EXPECT_EQ(server.end(), 0);
  }
}

TEST(SymbolServer, OutlivesItsWorkersAndDamagedModules) {
  CONNECTED_SERVER server;
  ASSERT_EQ(server.open_module(SYMBOL_SERVER), protocol::opened);
  const auto good = server.look_up(0, 0x8000);
  EXPECT_EQ(good.first, protocol::answers);
  EXPECT_THAT(good.second, HasSubstr(".cpp"));
  server.kill_worker();
  EXPECT_THAT(server.look_up(0, 0x8100).second, HasSubstr(".cpp"));
  server.kill_worker();
  EXPECT_EQ(server.look_up(0, 0x8000), good) << "what was known";

  const RUN directory({.path = "/bin/true"});
  const std::string path = directory.directory() / "a\nb \xff%";
  std::filesystem::copy(SYMBOL_SERVER, path);
  ASSERT_EQ(server.open_module(path), protocol::opened);
  std::filesystem::resize_file(path, 4096);  // as when it is linked anew
  EXPECT_NE(server.look_up(1, 0x8000).first, 0U);
  EXPECT_EQ(server.open_module("/dev/null"), protocol::refused);
  EXPECT_EQ(server.look_up(0, 0x8000), good);
  EXPECT_EQ(server.end(), 0);
}

}  // namespace
