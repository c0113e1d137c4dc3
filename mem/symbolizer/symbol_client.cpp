#include "mem/symbolizer/symbol_client.h"

#include <sys/auxv.h>
#include <unistd.h>

#include <cerrno>
#include <mutex>
#include <string_view>
#include <utility>

#include "mem/base/signals_held.h"
#include "mem/base/static_storage.h"
#include "mem/host/environment.h"
#include "mem/host/message.h"
#include "mem/host/settings_table.h"
#include "mem/symbolizer/loaded_module.h"
#include "mem/symbolizer/tool_start.h"
#include "platform/raw_syscall.h"

constinit MEM_SYMBOL_CLIENT MEM_SYMBOL_CLIENT::singleton_instance;

namespace {

using END = MEM_SYMBOL_CONNECTION::END;

using LOCKED = MEM_LOCKED_WITHOUT_SIGNALS<tbb::spin_mutex>;

constexpr char program[] = "tuk-mem-symbols";
constexpr MEM_NAME_OF_SETTING<MEM_SETTING_TYPE::TEXT> socket_setting("KORVANE_MEM_SYMBOL_SERVER");

// Where the program is, seen from this library: installed, and where both have been built.
constexpr char const* directories[] = {TUK_MEM_PROGRAMS_DIRECTORY, "."};

void say(char const* who, char const* what) { mem_tracker_debug("%s %s", who, what); }

// Beside this library, or else wherever programs are. A process that has more rights than whoever
// started it finds it only there where it finds other tools.
MEM_BOOKKEEPING_STRING path_of_program() {
  static constexpr char own = 0;
  MEM_LOADED_MODULE module;
  if (getauxval(AT_SECURE) != 0 || !module.find(&own)) return program;
  const std::string_view library = MEM_MODULE_FILE::of_module(module).absolute_path();
  for (char const* directory : directories) {
    MEM_BOOKKEEPING_STRING path(library.substr(0, library.rfind('/') + 1));
    path.append(directory).append("/").append(program);
    if (thr_raw_syscall(SYS_access, path.c_str(), X_OK) == 0) return path;
  }
  return program;
}

int start_server(THR_CONNECTION& connection) {
  const MEM_BOOKKEEPING_STRING command = mem_command_word(path_of_program()) + " --connected";
  return thr_connect_to_program(command.c_str(), connection);
}

char const* why_it_is_not_asked(int error) {
  switch (error) {
    case EACCES:
      return "is not asked: its directory is not this user's, or others may enter it";
    case EPERM:
      return "is not asked: it is another user's";
    case ENAMETOOLONG:
      return "is not asked: its path is too long for a socket's";
    default:
      return "does not answer";
  }
}

char const* what_has_come_to_it(END end) {
  if (end == END::hung_up) return "has ended";
  return end == END::silent ? "gives no answer" : "gives answers that can't be understood";
}

}  // namespace

class MEM_SYMBOL_CLIENT::END_OF_CONNECTING {
 public:
  explicit END_OF_CONNECTING(MEM_SYMBOL_CLIENT& client) : m_client(client) {}
  END_OF_CONNECTING(const END_OF_CONNECTING&) = delete;
  END_OF_CONNECTING& operator=(const END_OF_CONNECTING&) = delete;
  ~END_OF_CONNECTING() {
    const LOCKED locked(m_client.m_lock.mutex);
    m_client.m_connecting_since = 0;
  }

 private:
  MEM_SYMBOL_CLIENT& m_client;
};

MEM_SYMBOL_CLIENT::OUTCOME MEM_SYMBOL_CLIENT::look_up(MEM_MODULE_FILE& file,
                                                      std::span<const std::uint64_t> addresses,
                                                      MEM_SYMBOL_BYTES& payload) {
  for (int attempt = 0; attempt < 2; ++attempt) {
    TROUBLE trouble = TROUBLE::none;
    const CONNECTION connection = usable_connection(trouble);
    if (trouble != TROUBLE::none)
      return trouble == TROUBLE::for_good ? OUTCOME::no_server : OUTCOME::for_now;
    switch (connection->look_up(file, addresses, payload)) {
      case MEM_SYMBOL_CONNECTION::OUTCOME::answered:
        return OUTCOME::answered;
      case MEM_SYMBOL_CONNECTION::OUTCOME::unreadable:
        return OUTCOME::unknown;
      case MEM_SYMBOL_CONNECTION::OUTCOME::no_room:
        if (!m_refusal_for_now_is_said.exchange(true))
          say("the symbol server",
              "has no room for all modules: some addresses stay unknown for now");
        return OUTCOME::for_now;
      case MEM_SYMBOL_CONNECTION::OUTCOME::for_now:
        return OUTCOME::for_now;
      case MEM_SYMBOL_CONNECTION::OUTCOME::no_answer:
        break;
    }
    settle_end(*connection);
    if (has_given_up()) return OUTCOME::no_server;
    if (connection->end() != END::taken_away) return OUTCOME::for_now;
  }
  if (!m_shortage_is_said.exchange(true))
    say(program, "loses its socket to the host: addresses stay unknown for now");
  return OUTCOME::for_now;
}

MEM_SYMBOL_CLIENT::CONNECTION MEM_SYMBOL_CLIENT::usable_connection(TROUBLE& trouble) {
  constexpr timespec a_millisecond{.tv_sec = 0, .tv_nsec = 1'000'000};
  const CLOCK::time_point deadline = CLOCK::now() + MEM_SYMBOL_CONNECTION::most_time;
  for (; CLOCK::now() < deadline; thr_raw_syscall(SYS_nanosleep, &a_millisecond, nullptr)) {
    if (has_given_up()) {
      trouble = TROUBLE::for_good;
      return nullptr;
    }
    CONNECTION known;
    if (find_or_begin_to_connect(known)) return connect(trouble);
    if (known == nullptr) continue;
    // In a child that no fork handler has told us of, the socket is shared with its parent.
    if (known->is_of_this_process()) return known;
    break;
  }
  trouble = TROUBLE::for_now;
  return nullptr;
}

// True for the one thread that is to connect. Another takes that over from one that is never heard
// of again.
bool MEM_SYMBOL_CLIENT::find_or_begin_to_connect(CONNECTION& known) {
  const LOCKED locked(m_lock.mutex);
  if (m_current != nullptr && (*m_current)->end() == END::none) {
    known = *m_current;
    return false;
  }
  const CLOCK::time_point now = CLOCK::now();
  const CLOCK::time_point since(CLOCK::duration{m_connecting_since});
  if (m_connecting_since != 0 && now - since < MEM_SYMBOL_CONNECTION::most_time) return false;
  m_connecting_since = now.time_since_epoch().count();
  return true;
}

MEM_SYMBOL_CLIENT::CONNECTION MEM_SYMBOL_CLIENT::connect(TROUBLE& trouble) {
  const END_OF_CONNECTING end_of_connecting(*this);
  CONNECTION fresh = std::allocate_shared<MEM_SYMBOL_CONNECTION>(
      MEM_BOOKKEEPING_ALLOCATOR<MEM_SYMBOL_CONNECTION>());
  if (const int error = find_server(fresh->socket())) {
    trouble = could_not_connect(error);
    return nullptr;
  }
  replace_current(new (HOLDER_MEMORY().allocate(1)) CONNECTION(fresh));
  return fresh;
}

// The former one ends when no thread uses it any more, and not under the lock.
void MEM_SYMBOL_CLIENT::replace_current(CONNECTION* fresh) {
  CONNECTION* former = nullptr;
  {
    const LOCKED locked(m_lock.mutex);
    former = std::exchange(m_current, fresh);
  }
  if (former == nullptr) return;
  former->~CONNECTION();
  HOLDER_MEMORY().deallocate(former, 1);
}

void MEM_SYMBOL_CLIENT::clear() { replace_current(nullptr); }

// The lock may have been held.
void MEM_SYMBOL_CLIENT::abandon() {
  if (m_current != nullptr) (*m_current)->abandon();
  mem_abandon(m_current);
  m_connecting_since = 0;
  m_lock.unlocked = 0;
}

int MEM_SYMBOL_CLIENT::find_server(THR_CONNECTION& socket) {
  char const* const path = mem_environment_value(socket_setting.setting().name);
  if (path != nullptr && *path != '\0') {
    const int error = thr_connect_to_socket(path, socket);
    if (error == 0 || mem_is_shortage(error)) return error;
    if (!m_refusal_is_said.exchange(true)) say(path, why_it_is_not_asked(error));
  }
  return start_server(socket);
}

MEM_SYMBOL_CLIENT::TROUBLE MEM_SYMBOL_CLIENT::could_not_connect(int error) {
  if (mem_is_shortage(error)) {
    if (!m_shortage_is_said.exchange(true))
      say(program,
          "can't be started, for want of processes, descriptors or memory: addresses stay unknown "
          "for now");
    return TROUBLE::for_now;
  }
  if (m_failures.exchange(most_failures) < most_failures)
    say(program, "can't be started: addr2line is asked instead");
  return TROUBLE::for_good;
}

// Of all the threads that see the end of a server, one counts it.
void MEM_SYMBOL_CLIENT::settle_end(MEM_SYMBOL_CONNECTION& connection) {
  if (!connection.is_first_to_see_the_end() || connection.end() == END::taken_away) return;
  const bool is_last = ++m_failures >= most_failures;
  mem_tracker_debug("the symbol server %s: %s", what_has_come_to_it(connection.end()),
                    is_last ? "addr2line is asked from now on" : "another one is asked next");
}
