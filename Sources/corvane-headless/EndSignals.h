#pragma once

namespace CorvaneControl::Headless {

/// Turns the signals that ask a program to end into something that poll(2) sees, and keeps others
/// from ending or stopping it. There is one of it in a process, for as long as the process runs.
class EndSignals {
 public:
  /// From now on SIGINT and SIGTERM, and SIGHUP unless it is ignored, make `descriptor` readable.
  EndSignals();
  EndSignals(const EndSignals&) = delete;
  EndSignals& operator=(const EndSignals&) = delete;

  int descriptor() const { return ends_[0]; }
  /// Whether the system had a descriptor to give.
  bool isUsable() const { return ends_[0] >= 0; }

 private:
  int ends_[2] = {-1, -1};
};

}  // namespace CorvaneControl::Headless
