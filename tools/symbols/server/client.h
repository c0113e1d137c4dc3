// One connection, and what is asked over it.
#pragma once

#include <sys/socket.h>

#include <deque>
#include <functional>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "mem/symbolizer/symbol_protocol.h"
#include "tools/symbols/server/loop.h"
#include "tools/symbols/server/module_store.h"
#include "tools/symbols/server/question.h"

namespace symbols {

/// Believes nothing that it is told: what breaks the rules of the protocol ends the connection.
/// What it keeps for a client is bounded: who does not read its answers is not read from.
class CLIENT : public WATCHER, public ASKER {
 public:
  /// `gone` is called when the connection has ended, and may destroy the client.
  CLIENT(LOOP& loop, MODULE_STORE& store, DESCRIPTOR socket, std::function<void(CLIENT&)> gone);
  ~CLIENT() override;

  /// Whether anything was ever asked. Who looks whether a server is there asks nothing.
  bool has_asked() const { return m_has_asked; }

  void ready(std::uint32_t events) override;
  void settled(const std::shared_ptr<QUESTION>& question) override;

 private:
  using HEADER = MEM_SYMBOL_PROTOCOL::HEADER;
  using REFUSAL = MEM_SYMBOL_PROTOCOL::REFUSAL;

  bool receive();
  bool keep_descriptors(msghdr& message);
  bool take_frames();
  bool take_frames_in_room();
  bool has_whole_frame() const;
  bool take(const HEADER& header, std::string_view payload);
  void open_module(std::uint32_t number, std::string_view path);
  bool look_up(std::uint32_t number, std::string_view payload);
  bool break_off(std::uint32_t number);
  bool is_reading() const;

  void encode_settled();
  void write(std::uint32_t kind, std::uint32_t number, std::string_view payload);
  void refuse(std::uint32_t number, REFUSAL::REASON reason);
  bool send_written();
  void watch_for_what_can_be_done();

  LOOP& m_loop;
  MODULE_STORE& m_store;
  DESCRIPTOR m_socket;
  std::function<void(CLIENT&)> m_gone;
  std::string m_received;                // what is no whole frame yet
  std::deque<DESCRIPTOR> m_descriptors;  // that came, for the modules to be opened
  bool m_lost_descriptors = false;       // for want of room in this process
  std::vector<std::shared_ptr<KNOWN_MODULE>> m_modules;
  std::vector<std::shared_ptr<QUESTION>> m_open;    // unsettled
  std::deque<std::shared_ptr<QUESTION>> m_settled;  // and not written
  std::size_t m_open_addresses = 0;
  std::string m_written;  // to be sent
  bool m_has_asked = false;
  bool m_is_taking_frames = false;
  std::uint32_t m_watched_events = EPOLLIN;
};

}  // namespace symbols
