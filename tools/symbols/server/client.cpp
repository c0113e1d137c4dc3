#include "tools/symbols/server/client.h"

#include <algorithm>
#include <cerrno>
#include <cstring>

#include "tools/symbols/core/answer.h"

namespace symbols {

namespace {

using namespace MEM_SYMBOL_PROTOCOL;

constexpr std::size_t most_modules = 65536;
constexpr std::size_t most_descriptors = 64;
constexpr std::size_t most_open_questions = 256;
constexpr std::size_t most_open_addresses = 2 * std::size_t{most_addresses};
constexpr std::size_t most_written = 2 * most_payload;

template <class VALUE>
VALUE value_at(std::string_view bytes, std::size_t offset) {
  VALUE value;
  std::memcpy(&value, bytes.data() + offset, sizeof value);
  return value;
}

template <class VALUE>
std::string_view bytes_of(const VALUE& value) {
  return {reinterpret_cast<char const*>(&value), sizeof value};
}

// The answers one behind the other. Where a payload has no room for all their frames, outer ones of
// the longest chains are left out, each address keeping what fits into its share.
std::string payload_of(const QUESTION& question) {
  std::string payload;
  std::size_t left = question.addresses.size();
  for (const std::uint64_t address : question.addresses) {
    const std::size_t share = (most_payload - payload.size()) / left--;
    payload += first_frames(question.module->answer_to(address), share);
  }
  return payload;
}

}  // namespace

CLIENT::CLIENT(LOOP& loop, MODULE_STORE& store, DESCRIPTOR socket,
               std::function<void(CLIENT&)> gone)
    : m_loop(loop), m_store(store), m_socket(std::move(socket)), m_gone(std::move(gone)) {
  m_loop.watch(m_socket.number(), *this, m_watched_events);
}

CLIENT::~CLIENT() {
  m_loop.forget(m_socket.number(), *this);
  for (const auto& question : m_open) question->asker = nullptr;
}

void CLIENT::ready(std::uint32_t events) {
  const bool has_ended = (events & (EPOLLHUP | EPOLLERR)) != 0;
  if (has_ended || ((events & EPOLLIN) != 0 && !receive()) || !take_frames()) return m_gone(*this);
  watch_for_what_can_be_done();
}

// A part at a time: others are waiting too. False at the connection's end.
bool CLIENT::receive() {
  static char part[65536];
  alignas(cmsghdr) char control[CMSG_SPACE(8 * sizeof(int))];
  iovec bytes{.iov_base = part, .iov_len = sizeof part};
  msghdr message{};
  message.msg_iov = &bytes;
  message.msg_iovlen = 1;
  message.msg_control = control;
  message.msg_controllen = sizeof control;
  const ssize_t size = recvmsg(m_socket.number(), &message, MSG_CMSG_CLOEXEC | MSG_DONTWAIT);
  if (size < 0) return errno == EAGAIN || errno == EINTR;
  if (size == 0 || !keep_descriptors(message)) return false;
  m_received.append(part, static_cast<std::size_t>(size));
  return true;
}

bool CLIENT::keep_descriptors(msghdr& message) {
  for (cmsghdr* part = CMSG_FIRSTHDR(&message); part != nullptr;
       part = CMSG_NXTHDR(&message, part)) {
    if (part->cmsg_level != SOL_SOCKET || part->cmsg_type != SCM_RIGHTS) continue;
    const std::size_t count = (part->cmsg_len - CMSG_LEN(0)) / sizeof(int);
    for (std::size_t i = 0; i < count; ++i) {
      int number = -1;
      std::memcpy(&number, CMSG_DATA(part) + i * sizeof number, sizeof number);
      m_descriptors.emplace_back(number);
    }
  }
  if ((message.msg_flags & MSG_CTRUNC) != 0) m_lost_descriptors = true;
  return m_descriptors.size() <= most_descriptors;
}

// All, or as many as there is room for, with what can be sent of the answers meanwhile.
bool CLIENT::take_frames() {
  do {
    m_is_taking_frames = true;
    const bool is_well = take_frames_in_room();
    m_is_taking_frames = false;
    if (!is_well || !send_written()) return false;
  } while (is_reading() && has_whole_frame());
  return true;
}

bool CLIENT::has_whole_frame() const {
  return m_received.size() >= sizeof(HEADER) &&
         m_received.size() - sizeof(HEADER) >= value_at<HEADER>(m_received, 0).payload;
}

bool CLIENT::take_frames_in_room() {
  std::size_t taken = 0;
  bool is_well = true;
  while (is_well && is_reading()) {
    const std::string_view rest = std::string_view(m_received).substr(taken);
    if (rest.size() < sizeof(HEADER)) break;
    const auto header = value_at<HEADER>(rest, 0);
    if (header.magic != magic || header.payload > most_payload) {
      is_well = break_off(header.number);
      break;
    }
    if (rest.size() < sizeof header + header.payload) break;
    taken += sizeof header + header.payload;
    is_well = take(header, rest.substr(sizeof header, header.payload));
  }
  m_received.erase(0, taken);
  return is_well;
}

bool CLIENT::take(const HEADER& header, std::string_view payload) {
  m_has_asked = true;
  switch (header.kind) {
    case MEM_SYMBOL_PROTOCOL::open_module:
      if (m_descriptors.empty() && !m_lost_descriptors) return break_off(header.number);
      open_module(header.number, payload);
      return m_modules.size() <= most_modules;
    case MEM_SYMBOL_PROTOCOL::look_up:
      return look_up(header.number, payload);
    default:
      return break_off(header.number);
  }
}

void CLIENT::open_module(std::uint32_t number, std::string_view path) {
  if (m_descriptors.empty()) return refuse(number, REFUSAL::for_now);
  DESCRIPTOR file = std::move(m_descriptors.front());
  m_descriptors.pop_front();
  const auto opened = m_store.open(std::move(file), std::string(path.substr(0, path.find('\0'))));
  if (const auto* reason = std::get_if<REFUSAL::REASON>(&opened)) return refuse(number, *reason);
  const auto& module = std::get<std::shared_ptr<KNOWN_MODULE>>(opened);
  m_modules.push_back(module);
  const OPENED answer{.module = static_cast<std::uint32_t>(m_modules.size() - 1)};
  write(MEM_SYMBOL_PROTOCOL::opened, number, bytes_of(answer));
}

bool CLIENT::look_up(std::uint32_t number, std::string_view payload) {
  using ASKED = MEM_SYMBOL_PROTOCOL::QUESTION;
  if (payload.size() < sizeof(ASKED)) return break_off(number);
  const auto asked = value_at<ASKED>(payload, 0);
  if (asked.addresses == 0 || asked.addresses > most_addresses ||
      asked.module >= m_modules.size() ||
      payload.size() != sizeof asked + asked.addresses * sizeof(std::uint64_t))
    return break_off(number);
  auto question = std::make_shared<symbols::QUESTION>(*this, number, m_modules[asked.module]);
  for (std::size_t i = 0; i < asked.addresses; ++i)
    question->addresses.push_back(
        value_at<std::uint64_t>(payload, sizeof asked + i * sizeof(std::uint64_t)));
  m_open.push_back(question);
  m_open_addresses += asked.addresses;
  question->module->ask(question);
  return true;
}

// Says so, if that can be said at once.
bool CLIENT::break_off(std::uint32_t number) {
  refuse(number, REFUSAL::misuse);
  send_written();
  return false;
}

// May be called from within ask(), or at any later time: then the answer goes out at once, for the
// asker waits. That he has gone is seen in the next turn.
void CLIENT::settled(const std::shared_ptr<QUESTION>& question) {
  m_open.erase(std::find(m_open.begin(), m_open.end(), question));
  m_open_addresses -= question->addresses.size();
  m_settled.push_back(question);
  if (m_is_taking_frames) return;
  send_written();
  watch_for_what_can_be_done();
}

bool CLIENT::is_reading() const {
  return m_open.size() + m_settled.size() < most_open_questions &&
         m_open_addresses < most_open_addresses && m_written.size() < most_written;
}

void CLIENT::encode_settled() {
  while (!m_settled.empty() && m_written.size() < most_written) {
    const std::shared_ptr<QUESTION> question = m_settled.front();
    m_settled.pop_front();
    if (question->refusal != 0) {
      refuse(question->number, question->refusal);
    } else {
      write(MEM_SYMBOL_PROTOCOL::answers, question->number, payload_of(*question));
    }
  }
}

void CLIENT::write(std::uint32_t kind, std::uint32_t number, std::string_view payload) {
  const HEADER header{.magic = magic,
                      .kind = kind,
                      .number = number,
                      .payload = static_cast<std::uint32_t>(payload.size())};
  m_written.append(bytes_of(header)).append(payload);
}

void CLIENT::refuse(std::uint32_t number, REFUSAL::REASON reason) {
  write(MEM_SYMBOL_PROTOCOL::refused, number, bytes_of(REFUSAL{.reason = reason}));
}

// What the socket takes now. False when nobody will read it.
bool CLIENT::send_written() {
  encode_settled();
  std::size_t sent = 0;
  while (sent < m_written.size()) {
    const ssize_t size = send(m_socket.number(), m_written.data() + sent, m_written.size() - sent,
                              MSG_NOSIGNAL | MSG_DONTWAIT);
    if (size < 0 && errno == EINTR) continue;
    if (size < 0 && errno != EAGAIN) return false;
    if (size <= 0) break;
    sent += static_cast<std::size_t>(size);
  }
  m_written.erase(0, sent);
  return true;
}

// Frames that were left lying are looked at when something has been sent.
void CLIENT::watch_for_what_can_be_done() {
  const bool has_to_write = !m_written.empty() || !m_settled.empty();
  const std::uint32_t events = (is_reading() ? EPOLLIN : 0U) | (has_to_write ? EPOLLOUT : 0U);
  if (events == m_watched_events) return;
  m_watched_events = events;
  m_loop.change(m_socket.number(), *this, events);
}

}  // namespace symbols
