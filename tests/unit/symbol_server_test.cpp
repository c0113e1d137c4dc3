// The symbolizer "server": against a stand-in at a socket that says what the test wants.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <cstdio>
#include <functional>
#include <set>
#include <span>

#include "mem/symbolizer/symbol_client.h"
#include "mem/symbolizer/symbol_protocol.h"
#include "mem/symbolizer/symbolizer_factory.h"
#include "tests/support/debug_lines.h"
#include "tests/support/inlined_chain.h"
#include "tests/support/temporary_directory.h"
#include "tests/support/threads.h"

namespace {

using namespace MEM_SYMBOL_PROTOCOL;
using testing::ElementsAre, testing::HasSubstr, testing::SizeIs;
using OUTCOME = MEM_SYMBOL_CLIENT::OUTCOME;

template <class... OBJECTS>
std::string bytes_of(const OBJECTS&... objects) {
  std::string bytes;
  (bytes.append(reinterpret_cast<char const*>(&objects), sizeof objects), ...);
  return bytes;
}

std::string framed(std::uint32_t kind, std::uint32_t number, const std::string& payload) {
  return bytes_of(HEADER{magic, kind, number, static_cast<std::uint32_t>(payload.size())}) +
         payload;
}

std::string number_text(std::uint32_t number) { return bytes_of(number); }

std::string frame_text(const std::string& function, const std::string& file, std::uint32_t line) {
  const auto length = [](const std::string& text) {
    return static_cast<std::uint32_t>(text.size());
  };
  return bytes_of(FRAME{line, length(function), length(file)}) + function + file;
}

// Functions are named after the addresses.
std::string name_of(std::uint64_t address) {
  std::string name("f");
  return name += std::to_string(address);
}

std::string well_said(const HEADER& header, const std::string& payload) {
  if (header.kind == open_module) return framed(opened, header.number, number_text(7));
  std::string text;
  for (std::size_t at = sizeof(QUESTION); at < payload.size(); at += 8) {
    std::uint64_t address = 0;
    payload.copy(reinterpret_cast<char*>(&address), sizeof address, at);
    text += number_text(1) + frame_text(name_of(address), "/f", 1);
  }
  return framed(answers, header.number, text);
}

// At a socket that KORVANE_MEM_SYMBOL_SERVER names, from its construction on.
class STAND_IN_SERVER {
 public:
  static constexpr char const* held_back = "nothing yet";
  // What is sent after a question; nothing hangs up.
  using ANSWER = std::function<std::string(const HEADER&, const std::string& payload)>;

  explicit STAND_IN_SERVER(ANSWER answer) : m_answer(std::move(answer)) {
    sockaddr_un address{.sun_family = AF_UNIX, .sun_path = "socket"};
    unlink(address.sun_path);
    if (bind(m_socket, reinterpret_cast<sockaddr*>(&address), sizeof address) != 0) std::abort();
    listen(m_socket, 8);
    setenv("KORVANE_MEM_SYMBOL_SERVER", (std::filesystem::current_path() / "socket").c_str(), 1);
    m_thread = std::jthread([this] {
      while ((m_peer = accept(m_socket, nullptr, nullptr)) >= 0) serve();
    });
  }
  ~STAND_IN_SERVER() {
    shutdown(m_socket, SHUT_RDWR);
    shutdown(m_peer, SHUT_RDWR);
  }

 private:
  void serve() {
    HEADER header;
    while (recv(m_peer, &header, sizeof header, MSG_WAITALL) == sizeof header) {
      std::string payload(header.payload, '\0');
      recv(m_peer, payload.data(), payload.size(), MSG_WAITALL);
      const std::string said = m_answer(header, payload);
      if (said.empty()) break;
      if (said == held_back) continue;
      const std::size_t first = std::min<std::size_t>(said.size(), 9);  // half a header
      send(m_peer, said.data(), first, MSG_NOSIGNAL);
      send(m_peer, said.data() + first, said.size() - first, MSG_NOSIGNAL);
    }
    close(m_peer.exchange(-1));
  }

  const int m_socket = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
  std::atomic<int> m_peer = -1;
  const ANSWER m_answer;
  std::jthread m_thread;
};

class SYMBOL_SERVER : public testing::Test {
 protected:
  ~SYMBOL_SERVER() override { client.clear(); }

  std::string function_at(std::uint64_t address, OUTCOME outcome = OUTCOME::answered) {
    MEM_SYMBOL_BYTES payload;
    MEM_ADDRESS_INFO info{};
    std::vector<MEM_ADDRESS_INFO> inlined;
    EXPECT_EQ(client.look_up(file, {&address, 1}, payload), outcome);
    const auto frames = MEM_SYMBOL_ANSWERS({payload.data(), payload.size()}).next();
    mem_parse_symbol_answer(frames.value_or(""), info, inlined);
    return info.function_name_buffer;
  }
  // Of a client that has asked nobody yet.
  void expect_trouble(std::initializer_list<OUTCOME> outcomes, char const* trouble) {
    client.clear();
    new (&client) MEM_SYMBOL_CLIENT;
    const auto said = debug_lines_of([&] {
      for (const OUTCOME outcome : outcomes) function_at(1, outcome);
    });
    EXPECT_THAT(said, ElementsAre(HasSubstr(trouble), HasSubstr("addr2line is asked")));
  }

  const TEMPORARY_DIRECTORY directory;
  MEM_MODULE_FILE& file =
      MEM_MODULE_FILE::of_path(std::filesystem::read_symlink("/proc/self/exe").c_str());
  MEM_SYMBOL_CLIENT client;
};

std::string described(const MEM_ADDRESS_INFO& info) {
  return std::string(info.function_name_buffer) + " " + info.file_name_buffer + ":" +
         std::to_string(info.line);
}

TEST(SymbolAnswer, IsReadIntoRecordsOrFoundNotToFit) {
  const std::string text(600, 'x');
  const std::string inner = frame_text("f", "/a.c", 1), outer = frame_text("g", "/b.c", 2);
  const std::string huge = bytes_of(FRAME{1, UINT32_MAX, UINT32_MAX});
  const std::tuple<std::string, std::vector<std::string>> rows[] = {
      {number_text(1) + inner, {"f /a.c:1"}},
      {number_text(5) + inner + frame_text("", "/b.c", 2) + frame_text("g", "", 2) +
           frame_text("?", "/b.c", 2) + outer,
       {"f /a.c:1", "g /b.c:2"}},
      {number_text(1) + frame_text("?", "??", 9), {" :0"}},
      {number_text(1) + frame_text("f", "/a.c", UINT32_MAX), {"f /a.c:0"}},
      {number_text(1) + frame_text(text, text, 7),
       {text.substr(88) + " " + text.substr(344) + ":7"}},
      {"", {}},
      {number_text(0), {}},
      {number_text(most_frames + 1) + inner, {}},
      {number_text(2) + inner + outer.substr(0, outer.size() - 1), {}},
      {number_text(2) + inner + huge, {}}};
  for (const auto& [payload, expected] : rows) {
    MEM_ADDRESS_INFO info{};
    std::vector<MEM_ADDRESS_INFO> inlined(3);
    std::vector<std::string> found;
    if (const auto frames = MEM_SYMBOL_ANSWERS(payload).next()) {
      mem_parse_symbol_answer(*frames, info, inlined);
      found.push_back(described(info));
      for (const MEM_ADDRESS_INFO& frame : inlined) found.push_back(described(frame));
    }
    EXPECT_EQ(found, expected) << payload.size();
  }
}

TEST_F(SYMBOL_SERVER, ThatFailsIsAskedForNowTriedOnceMoreAndThenLeftToAddr2line) {
  MEM_SYMBOL_CONNECTION::most_time = std::chrono::milliseconds(200);
  constexpr char const* nonsense = "can't be understood";
  const std::string one = number_text(1) + frame_text("f", "", 1);
  const std::pair<std::function<std::string(std::uint32_t number)>, char const*> rows[] = {
      {[](auto) { return std::string(); }, "has ended"},
      {[&](auto n) { return framed(answers, n, one).substr(0, 20); }, "gives no answer"},
      {[&](auto n) { return framed(answers, n, one.substr(1)); }, nonsense},
      {[&](auto n) { return framed(answers, n, one + "more"); }, nonsense},
      {[&](auto n) { return framed(answers, n + 1, one); }, nonsense},
      {[&](auto n) { return framed(opened, n, one); }, nonsense},
      {[&](auto n) { return framed(refused, n, number_text(REFUSAL::misuse)); }, nonsense},
      {[&](auto n) {
         return bytes_of(HEADER{magic, opened, n, most_payload + 1});
       },
       nonsense},
      {[](auto) { return std::string(99, 'x'); }, nonsense}};
  for (const auto& [said, trouble] : rows) {
    SCOPED_TRACE(testing::Message() << &said - &rows[0].first << trouble);
    const STAND_IN_SERVER server([&said = said](const HEADER& header, const auto& payload) {
      return header.kind == open_module ? well_said(header, payload) : said(header.number);
    });
    expect_trouble({OUTCOME::for_now, OUTCOME::no_server, OUTCOME::no_server}, trouble);
  }
  setenv("KORVANE_MEM_SYMBOL_SERVER", "/nowhere/socket", 1);
  setenv("PATH", "/nowhere:/usr/bin", 1);
  MEM_ADDRESS_INFO info{};
  MEM_SYMBOLIZER_FACTORY::get_symbolizer("server")->get_source_and_function_info(
      chain::hundred_levels(), info);
  EXPECT_EQ(described(info), "void const* chain::level<1>() /chain/level.h:40");
  MEM_SYMBOLIZER_FACTORY::end_all_tools();
}

TEST_F(SYMBOL_SERVER, RefusesAFileForNowOrForGood) {
  std::atomic<std::uint32_t> reason = REFUSAL::for_now;
  std::atomic<int> questions = 0;
  const STAND_IN_SERVER server([&](const HEADER& header, const auto&) {
    ++questions;
    return framed(refused, header.number, number_text(reason));
  });
  for (int i = 0; i < 3; ++i) function_at(1, OUTCOME::for_now);
  reason = REFUSAL::unreadable;
  for (int i = 0; i < 3; ++i) function_at(1, OUTCOME::unknown);
  EXPECT_EQ(questions, 4) << "what holds for good is not asked again";
}

// What one question has told of others is not asked for.
TEST_F(SYMBOL_SERVER, TellsOfTheFramesFurtherOutInTheSameAnswer) {
  std::atomic<int> questions = 0;
  const STAND_IN_SERVER server([&](const HEADER& header, const std::string& payload) {
    ++questions;
    return well_said(header, payload);
  });
  static const std::array<char, 3> here{};
  void const* const further[] = {&here[1], reinterpret_cast<void const*>(&std::puts), &here[2]};
  const auto line_at = [&](char const& address, std::span<void const* const> also) {
    MEM_ADDRESS_INFO info{};
    std::vector<MEM_ADDRESS_INFO> inlined;
    MEM_SYMBOLIZER_FACTORY::get_symbolizer("server")->ask_looking_ahead(&address, info, inlined,
                                                                        also);
    return described(info);
  };
  std::set<std::string> told = {line_at(here[0], further)};
  for (const char& address : here) told.insert(line_at(address, {}));
  EXPECT_THAT(told, SizeIs(3));
  EXPECT_EQ(questions, 3) << "to open the file, for all three, and for the one asked for again";
  MEM_SYMBOLIZER_FACTORY::end_all_tools();
}

// Answers in another order, all at once and in pieces.
TEST_F(SYMBOL_SERVER, GivesEachThreadItsOwnAnswer) {
  constexpr unsigned threads = 8;
  std::string all;
  unsigned held = 0;
  const STAND_IN_SERVER server([&](const HEADER& header, const std::string& payload) {
    std::string answer = well_said(header, payload);
    if (header.kind == open_module) return answer;
    all.insert(0, answer);
    return ++held % threads == 0 ? std::exchange(all, {}) : STAND_IN_SERVER::held_back;
  });
  start_threads(threads, [&](unsigned number) {
    for (unsigned i = 0; i < 500; ++i)
      EXPECT_EQ(function_at(8 * i + number), name_of(8 * i + number));
  });
}

TEST_F(SYMBOL_SERVER, IsNotAskedWhereOthersCouldStandInForIt) {
  setenv("PATH", "/nowhere", 1);
  const STAND_IN_SERVER server(well_said);
  const std::tuple<std::string, mode_t, char const*> rows[] = {
      {directory.path + "/socket", 0750, "others may enter"},
      {directory.path + "/none", 0700, "does not answer"},
      {directory.path + "/" + std::string(120, 'x'), 0700, "too long"}};
  for (const auto& [path, mode, why] : rows) {
    setenv("KORVANE_MEM_SYMBOL_SERVER", path.c_str(), 1);
    chmod(directory.path.c_str(), mode);
    expect_trouble({OUTCOME::no_server, OUTCOME::no_server}, why);
  }
}

}  // namespace
