#pragma once

#include <memory>

namespace kel::platform {

/// Turns the requests to end the program (SIGINT and SIGTERM on Linux; Ctrl+C and the
/// console's close on Windows) into an event that one thread waits for, instead of ending
/// the process at once, even when the program was started with them ignored. Construct it
/// at the start of main, before any thread starts, so that every later thread leaves the
/// requests to it.
class TerminationSignals {
 public:
  TerminationSignals();
  ~TerminationSignals();
  TerminationSignals(const TerminationSignals&) = delete;
  TerminationSignals& operator=(const TerminationSignals&) = delete;

  /// Blocks until a request arrives and returns its name ("SIGINT", "SIGTERM").
  const char* Wait();

 private:
  struct Saved;
  std::unique_ptr<Saved> saved_;
};

}  // namespace kel::platform
