#pragma once

#include <cstdint>
#include <memory>
#include <span>

#include "platform/socket.h"

namespace kel::platform {

/// What a caller wants to hear about a socket: a bit set of these.
inline constexpr uint32_t kPollRead = 1;   ///< data, a pending connection, or the peer's end
inline constexpr uint32_t kPollWrite = 2;  ///< room to send

/// One ready socket, as Poller::Wait reports it.
struct PollEvent {
  uint64_t token = 0;     ///< the token given to Add or Modify
  bool readable = false;  ///< a receive or accept will not block
  bool writable = false;  ///< a send will not block
  bool failed = false;    ///< an error or hang-up; reported even with no interest at all
};

/// Level-triggered readiness of many sockets, waited on by one thread, and a wake-up that
/// any thread may send. Sockets stay owned by the caller; remove a socket before closing it.
/// On Linux this is epoll with an eventfd; a system without epoll keeps a list for poll.
class Poller {
 public:
  Poller();
  ~Poller();
  Poller(const Poller&) = delete;
  Poller& operator=(const Poller&) = delete;

  /// False when the system refused the resources; then nothing else works.
  bool Valid() const;

  /// Starts watching `socket` for `interest` (kPollRead | kPollWrite, or 0 for only
  /// failures); its events carry `token`.
  bool Add(const Socket& socket, uint32_t interest, uint64_t token);
  /// Changes the interest (and token) of a socket already added.
  bool Modify(const Socket& socket, uint32_t interest, uint64_t token);
  /// Stops watching `socket`.
  void Remove(const Socket& socket);

  /// The same for a descriptor that is not a socket, such as a pseudo-terminal's master
  /// (POSIX only: on Windows the poller watches sockets alone).
  bool AddHandle(intptr_t handle, uint32_t interest, uint64_t token);
  bool ModifyHandle(intptr_t handle, uint32_t interest, uint64_t token);
  void RemoveHandle(intptr_t handle);

  /// Waits up to `timeout_ms` (negative: without limit) until a watched socket is ready or
  /// Wake is called, then fills `events` and returns how many it filled: 0 after a time-out
  /// or a wake-up, -1 on an error of the system.
  int Wait(std::span<PollEvent> events, int timeout_ms);

  /// Makes the current Wait, or the next one if none is running, return at once. Safe to
  /// call from any thread.
  void Wake();

 private:
  struct Impl;
  std::unique_ptr<Impl> impl_;
};

}  // namespace kel::platform
