#pragma once

#include <gtest/gtest.h>

#include <array>
#include <cerrno>
#include <chrono>
#include <cstdlib>
#include <string>
#include <string_view>
#include <utility>

#include <fcntl.h>
#include <poll.h>
#include <sys/ioctl.h>
#include <termios.h>
#include <unistd.h>

#include "Support/ChildProcess.h"

namespace CorvaneTests {

/// A terminal that a program runs in, and the person at it. Tests that use one skip where a machine
/// lends none: `skipWithoutTerminals`.
class PseudoTerminal {
 public:
  /// Shows what is typed only when it is to: it would stand between what the program prints.
  explicit PseudoTerminal(unsigned short columns = 80, bool showsTyping = false) {
    open();
    if (!isOpen()) std::abort();
    resize(columns);
    termios modes = this->modes();
    if (!showsTyping) modes.c_lflag &= ~static_cast<tcflag_t>(ECHO);
    modes.c_oflag &= ~static_cast<tcflag_t>(OPOST);
    ::tcsetattr(slave_, TCSANOW, &modes);
  }
  ~PseudoTerminal() { hangUp(); }
  PseudoTerminal(const PseudoTerminal&) = delete;
  PseudoTerminal& operator=(const PseudoTerminal&) = delete;

  /// Whether this machine lends terminals: a container may be without /dev/pts, or with one that is
  /// not its own.
  static bool areThere() {
    PseudoTerminal tried{Unopened{}};
    tried.open();
    return tried.isOpen();
  }

  /// Makes a program that `options` describe run in this terminal.
  ChildOptions lentTo(ChildOptions options) const {
    options.given = {{0, slave_}, {1, slave_}};
    options.beforeExec = [] {
      ::setsid();
      ::ioctl(0, TIOCSCTTY, 0);
    };
    return options;
  }

  /// The user drags the window's edge.
  void resize(unsigned short columns, unsigned short rows = 50) const {
    winsize size{};
    size.ws_row = rows;
    size.ws_col = columns;
    ::ioctl(slave_, TIOCSWINSZ, &size);
  }
  termios modes() const {
    termios now{};
    ::tcgetattr(slave_, &now);
    return now;
  }

  void type(std::string_view text) const {
    EXPECT_EQ(::write(master_, text.data(), text.size()), static_cast<ssize_t>(text.size()));
  }
  void typeEndOfInput() const { type("\x04"); }
  void hangUp() {
    for (int* const end : {&master_, &slave_}) {
      if (*end >= 0) ::close(std::exchange(*end, -1));
    }
  }

  /// Everything that was printed so far.
  const std::string& screen() const { return screen_; }
  /// Waits until one of two texts was printed, from the byte `from` on, and says whether it was the
  /// first; fails the test when none ever is.
  bool waitForFirstOf(std::string_view text, std::string_view other, std::size_t from) {
    const auto holds = [&](std::string_view one) {
      return screen_.find(one, from) != std::string::npos;
    };
    const auto deadline = std::chrono::steady_clock::now() + patience;
    while (!holds(text) && !holds(other) && std::chrono::steady_clock::now() < deadline) {
      take(std::chrono::milliseconds(20));
    }
    return holds(text) || (!holds(other) && waitFor(other, from));
  }
  /// Waits until `text` was printed, from the byte `from` on; fails the test when it never is.
  bool waitFor(std::string_view text, std::size_t from = 0) {
    const auto deadline = std::chrono::steady_clock::now() + patience;
    while (screen_.find(text, from) == std::string::npos) {
      if (std::chrono::steady_clock::now() >= deadline) {
        ADD_FAILURE() << "the terminal never showed \"" << text << "\" but\n" << screen_;
        return false;
      }
      take(std::chrono::milliseconds(20));
    }
    return true;
  }

 private:
  struct Unopened {};
  explicit PseudoTerminal(Unopened /*tag*/) {}

  void open() {
    master_ = ::posix_openpt(O_RDWR | O_NOCTTY);
    if (master_ < 0 || ::grantpt(master_) != 0 || ::unlockpt(master_) != 0) return;
    ::fcntl(master_, F_SETFD, FD_CLOEXEC);
    const char* const name = ::ptsname(master_);
    if (name != nullptr) slave_ = ::open(name, O_RDWR | O_NOCTTY | O_CLOEXEC);
  }
  bool isOpen() const { return slave_ >= 0; }

  void take(std::chrono::milliseconds limit) {
    pollfd polled{.fd = master_, .events = POLLIN, .revents = 0};
    if (::poll(&polled, 1, static_cast<int>(limit.count())) <= 0) return;
    std::array<char, 4096> chunk;
    const ssize_t count = ::read(master_, chunk.data(), chunk.size());
    if (count > 0) screen_.append(chunk.data(), static_cast<std::size_t>(count));
  }

  int master_ = -1;
  int slave_ = -1;
  std::string screen_{};
};

/// To be called first in a test, or when it is set up.
inline void skipWithoutTerminals() {
  static const bool areThere = PseudoTerminal::areThere();
  if (!areThere) GTEST_SKIP() << "no terminal can be opened here; is /dev/pts mounted?";
}

/// Tests in a terminal.
class InATerminal : public testing::Test {
 protected:
  void SetUp() override { skipWithoutTerminals(); }
};

}  // namespace CorvaneTests
