#include "mem/symbolizer/symbol_connection.h"

#include <linux/futex.h>
#include <poll.h>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstring>
#include <new>
#include <utility>

#include "mem/symbolizer/deadline.h"
#include "mem/symbolizer/symbol_protocol.h"
#include "platform/raw_syscall.h"
#include "platform/thr_descriptor.h"
#include "platform/thr_runtime.h"

using namespace MEM_SYMBOL_PROTOCOL;

std::chrono::milliseconds MEM_SYMBOL_CONNECTION::most_time = std::chrono::seconds(10);

namespace {

using CLOCK = std::chrono::steady_clock;

// More threads than that wait for nothing: their addresses are asked for again later.
constexpr std::size_t most_in_flight = 1024;

// For how long a thread waits without looking around, and after which time the one at the socket is
// taken for lost.
constexpr std::chrono::milliseconds slice(100);
constexpr std::chrono::milliseconds lease = 3 * slice;

template <class OBJECT>
void append(MEM_SYMBOL_BYTES& bytes, const OBJECT& object) {
  char const* const first = reinterpret_cast<char const*>(&object);
  bytes.insert(bytes.end(), first, first + sizeof object);
}

// A frame without its header, which ask() fills in.
MEM_SYMBOL_BYTES empty_frame() { return MEM_SYMBOL_BYTES(sizeof(HEADER)); }

bool is_shortage(long error) {
  return error == -ENOMEM || error == -ENOBUFS || error == -ETOOMANYREFS;
}

using LOCKED = MEM_LOCKED_WITHOUT_SIGNALS<tbb::spin_mutex>;

}  // namespace

// The number that the server knows a file by.
struct MEM_SYMBOL_CONNECTION::KNOWN_MODULE {
  MEM_MODULE_FILE& file;
  bool is_readable;  // for the server
  std::uint32_t number;
  KNOWN_MODULE* older;
};

struct MEM_SYMBOL_CONNECTION::QUESTION_IN_FLIGHT {
  std::uint32_t number = 0;
  std::atomic<bool> is_answered{false};
  std::atomic<std::uint32_t> wakes{0};  // a futex
  MEM_SYMBOL_MESSAGE answer;            // once it is answered

  void wake() {
    ++wakes;
    thr_raw_syscall(SYS_futex, &wakes, FUTEX_WAKE_PRIVATE, INT_MAX, nullptr);
  }
  void wait(std::uint32_t wakes_seen, CLOCK::time_point until) {
    const timespec left = mem_time_until(until);
    thr_raw_syscall(SYS_futex, &wakes, FUTEX_WAIT_PRIVATE, wakes_seen, &left);
  }
};

// A module's file, for the server to read.
class MEM_SYMBOL_CONNECTION::OPEN_FILE {
 public:
  explicit OPEN_FILE(MEM_MODULE_FILE& file) : m_descriptor(file.open(m_state)) {}
  OPEN_FILE(const OPEN_FILE&) = delete;
  OPEN_FILE& operator=(const OPEN_FILE&) = delete;
  ~OPEN_FILE() { close(); }

  int descriptor() const { return m_descriptor; }
  void close() {
    if (m_descriptor >= 0) thr_raw_syscall(SYS_close, std::exchange(m_descriptor, -1));
  }

 private:
  MEM_MODULE_FILE::STATE m_state;
  int m_descriptor;
};

MEM_SYMBOL_CONNECTION::MEM_SYMBOL_CONNECTION() : m_owner(thr_getpid()) {}

MEM_SYMBOL_CONNECTION::~MEM_SYMBOL_CONNECTION() {
  if (is_of_this_process()) thr_disconnect(m_connection);
  MEM_BOOKKEEPING_ALLOCATOR<KNOWN_MODULE> memory;
  for (KNOWN_MODULE* module = m_newest_module; module != nullptr;)
    memory.deallocate(std::exchange(module, module->older), 1);
}

bool MEM_SYMBOL_CONNECTION::is_of_this_process() const { return m_owner == thr_getpid(); }

void MEM_SYMBOL_CONNECTION::abandon() { thr_give_up_descriptor(m_connection.socket); }

MEM_SYMBOL_CONNECTION::OUTCOME MEM_SYMBOL_CONNECTION::look_up(
    MEM_MODULE_FILE& file, std::span<const std::uint64_t> addresses, MEM_SYMBOL_BYTES& payload) {
  QUESTION question{.module = 0, .addresses = static_cast<std::uint32_t>(addresses.size())};
  if (const OUTCOME opened = module_number(file, question.module); opened != OUTCOME::answered)
    return opened;
  MEM_SYMBOL_BYTES frame = empty_frame();
  append(frame, question);
  for (const std::uint64_t address : addresses) append(frame, address);
  MEM_SYMBOL_MESSAGE answer;
  const OUTCOME outcome = ask(KIND::look_up, frame, nullptr, answer);
  if (outcome != OUTCOME::answered) return outcome;
  if (answer.kind != answers) return finish(END::damaged);
  MEM_SYMBOL_ANSWERS parts({answer.payload.data(), answer.payload.size()});
  for (std::size_t i = 0; i < addresses.size(); ++i)
    if (!parts.next()) return finish(END::damaged);
  if (!parts.is_at_end()) return finish(END::damaged);
  payload.swap(answer.payload);
  return OUTCOME::answered;
}

// Two threads may open a file at the same time: it has two numbers then, either of which will do.
MEM_SYMBOL_CONNECTION::OUTCOME MEM_SYMBOL_CONNECTION::module_number(MEM_MODULE_FILE& file,
                                                                    std::uint32_t& number) {
  for (KNOWN_MODULE* known = m_newest_module; known != nullptr; known = known->older)
    if (&known->file == &file) {
      number = known->number;
      return known->is_readable ? OUTCOME::answered : OUTCOME::unreadable;
    }
  const OUTCOME outcome = open_module(file, number);
  if (outcome == OUTCOME::answered || outcome == OUTCOME::unreadable)
    remember(file, outcome == OUTCOME::answered, number);
  return outcome;
}

void MEM_SYMBOL_CONNECTION::remember(MEM_MODULE_FILE& file, bool is_readable,
                                     std::uint32_t number) {
  MEM_BOOKKEEPING_ALLOCATOR<KNOWN_MODULE> memory;
  auto* const fresh = new (memory.allocate(1)) KNOWN_MODULE{file, is_readable, number, nullptr};
  fresh->older = m_newest_module;
  while (!m_newest_module.compare_exchange_weak(fresh->older, fresh)) {
  }
}

MEM_SYMBOL_CONNECTION::OUTCOME MEM_SYMBOL_CONNECTION::open_module(MEM_MODULE_FILE& file,
                                                                  std::uint32_t& number) {
  MEM_SYMBOL_BYTES frame = empty_frame();
  frame.insert(frame.end(), file.absolute_path(),
               file.absolute_path() + std::strlen(file.absolute_path()));
  OPEN_FILE passed(file);
  if (passed.descriptor() < 0) return OUTCOME::for_now;  // why is seen when it is asked for again
  MEM_SYMBOL_MESSAGE answer;
  const OUTCOME outcome = ask(KIND::open_module, frame, &passed, answer);
  if (outcome != OUTCOME::answered) return outcome;
  const auto told = answer.as_number();
  if (answer.kind != opened || !told) return finish(END::damaged);
  number = *told;
  return OUTCOME::answered;
}

// The file is closed as soon as it is on its way.
MEM_SYMBOL_CONNECTION::OUTCOME MEM_SYMBOL_CONNECTION::ask(std::uint32_t kind,
                                                          MEM_SYMBOL_BYTES& frame,
                                                          OPEN_FILE* passed,
                                                          MEM_SYMBOL_MESSAGE& answer) {
  const CLOCK::time_point deadline = CLOCK::now() + most_time;
  const int descriptor = passed == nullptr ? -1 : passed->descriptor();
  IN_FLIGHT question;
  long count = 0;
  {
    const MEM_SIGNALS_HELD held;
    question = put_in_flight(held);
    if (question == nullptr) return OUTCOME::for_now;
    const HEADER header{.magic = magic,
                        .kind = kind,
                        .number = question->number,
                        .payload = static_cast<std::uint32_t>(frame.size() - sizeof(HEADER))};
    std::memcpy(frame.data(), &header, sizeof header);
    count = send(held, frame, descriptor);
  }
  const OUTCOME sent = conclude_sending(count, frame, descriptor, deadline);
  if (passed != nullptr) passed->close();
  if (sent == OUTCOME::answered) await(question, deadline);
  if (!question->is_answered || m_number_in_flight > 0) take_off(question);
  if (sent != OUTCOME::answered) return sent;
  if (!question->is_answered) return OUTCOME::no_answer;
  std::swap(answer, question->answer);
  return answer.kind == refused ? refusal(answer) : OUTCOME::answered;
}

MEM_SYMBOL_CONNECTION::OUTCOME MEM_SYMBOL_CONNECTION::refusal(const MEM_SYMBOL_MESSAGE& answer) {
  const auto reason = answer.as_number();
  if (reason == REFUSAL::unreadable) return OUTCOME::unreadable;
  if (reason == REFUSAL::for_now) return OUTCOME::no_room;
  return finish(END::damaged);
}

// The first reason holds. Who waits at the socket is woken by this, and wakes the others.
MEM_SYMBOL_CONNECTION::OUTCOME MEM_SYMBOL_CONNECTION::finish(END why) {
  END none = END::none;
  if (m_end.compare_exchange_strong(none, why) && is_of_this_process())
    thr_hang_up(m_connection.socket);
  return OUTCOME::no_answer;
}

MEM_SYMBOL_CONNECTION::IN_FLIGHT MEM_SYMBOL_CONNECTION::put_in_flight(const MEM_SIGNALS_HELD&) {
  IN_FLIGHT question =
      std::allocate_shared<QUESTION_IN_FLIGHT>(MEM_BOOKKEEPING_ALLOCATOR<QUESTION_IN_FLIGHT>());
  const std::lock_guard lock(m_lock);
  if (m_in_flight.size() >= most_in_flight) return nullptr;
  question->number = ++m_last_number;
  m_in_flight.push_back(question);
  ++m_number_in_flight;
  return question;
}

// Somebody else is to wait at the socket now; at the end, nobody. Where a signal handler has forked
// that interrupted the wait, the lock may be held by a thread that the child does not have.
void MEM_SYMBOL_CONNECTION::take_off(const IN_FLIGHT& question) {
  if (!is_of_this_process()) return;
  const LOCKED locked(m_lock);
  m_number_in_flight -= std::erase(m_in_flight, question);
  const bool wake_all = m_end != END::none;
  if (!wake_all && m_reader_since != 0) return;
  for (std::size_t i = 0; i < m_in_flight.size() && (wake_all || i == 0); ++i)
    m_in_flight[i]->wake();
}

// A frame is smaller than what the kernel takes in one piece, so that it is sent whole or not at
// all. Where a host's system allows less, nothing can be said over such a socket.
long MEM_SYMBOL_CONNECTION::send(const MEM_SIGNALS_HELD&, const MEM_SYMBOL_BYTES& frame,
                                 int descriptor) {
  const std::lock_guard lock(m_lock);
  if (m_end != END::none) return -EPIPE;
  return thr_send(m_connection.socket, frame.data(), frame.size(), descriptor);
}

MEM_SYMBOL_CONNECTION::OUTCOME MEM_SYMBOL_CONNECTION::conclude_sending(
    long sent, const MEM_SYMBOL_BYTES& frame, int descriptor, CLOCK::time_point deadline) {
  while (sent == -EAGAIN || sent == -EINTR) {
    if (CLOCK::now() >= deadline) return finish(END::silent);
    if (!is_of_this_process()) return finish(END::taken_away);
    wait_for(POLLOUT, deadline);
    const MEM_SIGNALS_HELD held;
    sent = send(held, frame, descriptor);
  }
  if (sent == static_cast<long>(frame.size())) return OUTCOME::answered;
  if (is_shortage(sent)) return OUTCOME::for_now;
  return finish(sent == -EBADF ? END::taken_away : END::hung_up);
}

void MEM_SYMBOL_CONNECTION::await(const IN_FLIGHT& question, CLOCK::time_point deadline) {
  bool reads = false;
  while (!question->is_answered && m_end == END::none) {
    const std::uint32_t wakes = question->wakes;
    const CLOCK::time_point now = CLOCK::now();
    if (now >= deadline) finish(END::silent);
    reads = may_read(reads);
    if (!reads)
      question->wait(wakes, now + slice);
    else if (wait_for(POLLIN, now + slice))
      receive(*question);
  }
  if (reads) m_reader_since = 0;
}

bool MEM_SYMBOL_CONNECTION::may_read(bool reads) {
  const CLOCK::time_point now = CLOCK::now();
  CLOCK::rep since = m_reader_since;
  const bool is_free = since == 0 || now - CLOCK::time_point(CLOCK::duration(since)) > lease;
  if (!reads && !is_free) return false;
  return m_reader_since.compare_exchange_strong(since, now.time_since_epoch().count()) || reads;
}

// False when there is nothing to be done by then. To wait at another's descriptor does no harm: it
// is looked at before it is used. By poll: in a host with more than 1024 open files a descriptor
// may be beyond an fd_set.
bool MEM_SYMBOL_CONNECTION::wait_for(short events, CLOCK::time_point until) {
  pollfd socket{.fd = m_connection.socket, .events = events, .revents = 0};
  const timespec left = mem_time_until(until);
  const long ready = thr_raw_syscall(SYS_ppoll, &socket, 1, &left, nullptr);
  if (ready > 0) return true;
  if (thr_descriptor_is_lost(m_connection.socket)) finish(END::taken_away);
  if (ready < 0 && ready != -EINTR) finish(END::silent);  // the host may not wait, nor may we
  return false;
}

void MEM_SYMBOL_CONNECTION::receive(const QUESTION_IN_FLIGHT& own) try {
  if (!is_of_this_process()) {
    finish(END::taken_away);
    return;
  }
  const LOCKED locked(m_lock);
  bool may_be_more = true;
  while (may_be_more && m_end == END::none) {
    may_be_more = receive_piece();
    hand_over_answers(own);
  }
} catch (const std::bad_alloc&) {
  finish(END::taken_away);
}

// Whether the room was filled by what has come.
bool MEM_SYMBOL_CONNECTION::receive_piece() {
  const std::span<char> room = m_stream.room();
  const long count = thr_receive(m_connection.socket, room.data(), room.size());
  if (count > 0) {
    m_stream.taken(static_cast<std::size_t>(count));
    return count == static_cast<long>(room.size());
  }
  if (count != -EAGAIN && count != -EINTR) finish(count == -EBADF ? END::taken_away : END::hung_up);
  return false;
}

void MEM_SYMBOL_CONNECTION::hand_over_answers(const QUESTION_IN_FLIGHT& own) {
  using FOUND = MEM_SYMBOL_STREAM::FOUND;
  MEM_SYMBOL_MESSAGE answer;
  FOUND found = FOUND::answer;
  while (found == FOUND::answer) {
    found = m_stream.next(answer);
    if (found == FOUND::answer && !hand_over(answer, own)) found = FOUND::damaged;
  }
  if (found == FOUND::damaged) finish(END::damaged);
}

// False for an answer that nobody has asked for. The asker has not given up: that ends all.
bool MEM_SYMBOL_CONNECTION::hand_over(MEM_SYMBOL_MESSAGE& answer, const QUESTION_IN_FLIGHT& own) {
  const auto asked =
      std::find_if(m_in_flight.begin(), m_in_flight.end(),
                   [&](const IN_FLIGHT& question) { return question->number == answer.number; });
  if (asked == m_in_flight.end()) return false;
  const IN_FLIGHT question = *asked;
  m_in_flight.erase(asked);
  --m_number_in_flight;
  std::swap(question->answer, answer);
  question->is_answered = true;
  if (question.get() != &own) question->wake();
  return true;
}
