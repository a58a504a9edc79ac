#include "corvane-headless/Console.h"

#include <array>
#include <cerrno>
#include <cstdlib>
#include <ctime>
#include <utility>

#include <poll.h>
#include <sys/ioctl.h>
#include <termios.h>
#include <unistd.h>

#include "CorvaneControl/Platform/System.h"
#include "corvane-headless/Visible.h"

namespace CorvaneControl::Headless {

namespace {

/// Bytes of log that wait for a standard output that takes nothing; beyond it lines are lost.
constexpr std::size_t longestQueue = 1U << 20U;
/// Bytes of a line that somebody types.
constexpr std::size_t longestTyped = 64U << 10U;
/// A terminal that says it is narrower is not believed.
constexpr std::size_t fewestColumns = 20;
constexpr int secondInMilliseconds = 1000;

std::string timeNow() {
  const std::time_t now = std::time(nullptr);
  std::tm local{};
  ::localtime_r(&now, &local);
  std::array<char, sizeof "23:59:60"> text{};
  std::strftime(text.data(), text.size(), "%H:%M:%S", &local);
  return text.data();
}

/// Whether colours are welcome: NO_COLOR (no-color.org) and dumb terminals say no.
bool environmentAllowsColours() {
  const auto refused = System::environmentValue("NO_COLOR");
  return (!refused || refused->empty()) && System::environmentValue("TERM") != "dumb";
}

std::size_t columnsOf(int terminal) {
  winsize size{};
  if (::ioctl(terminal, TIOCGWINSZ, &size) != 0 || size.ws_col == 0) return Style{}.columns;
  return std::max<std::size_t>(size.ws_col, fewestColumns);
}

}  // namespace

Console::Console(bool quiet)
    : quiet_(quiet),
      inputIsTerminal_(::isatty(STDIN_FILENO) == 1),
      outputIsTerminal_(::isatty(STDOUT_FILENO) == 1),
      colours_(outputIsTerminal_ && environmentAllowsColours()) {}

void Console::log(std::string_view text) {
  if (quiet_) return;
  if (output_.size() > longestQueue) {
    ++lostLines_;
    return;
  }
  if (const std::size_t lost = std::exchange(lostLines_, 0); lost > 0) {
    log("(" + std::to_string(lost) + " lines of the log were lost: nobody took them.)");
  }
  std::string line = timeNow() + " ";
  const std::string margin(line.size(), ' ');
  if (outputIsTerminal_) {
    bool first = true;
    for (const std::string_view row : rows(text, style().columns - line.size() - 1)) {
      if (!std::exchange(first, false)) line.append("\n").append(margin);
      line.append(row);
    }
  } else {
    line.append(text);
  }
  show(line.append("\n"));
}

void Console::show(std::string_view text) {
  if (!outputFailed_) output_.append(text);
}

Style Console::style() const {
  Style style{.colours = colours_};
  if (outputIsTerminal_) style.columns = columnsOf(STDOUT_FILENO);
  return style;
}

bool Console::writeOutput() {
  if (output_.writeWhileReady(STDOUT_FILENO) != OutputQueue::Outcome::failed) return true;
  const int code = errno;
  outputFailed_ = true;
  output_.clear();
  if (code == EPIPE || (code == EIO && outputIsTerminal_))
    return false;  // nobody reads it any more
  isBroken_ = code == EIO;
  const std::string message = "corvane-headless: standard output: " + System::errorText(code) +
                              (isBroken_ ? "\n" : "; there is no log from now on.\n");
  // Nothing is left to tell a failure of this to.
  [[maybe_unused]] const ssize_t count = ::write(STDERR_FILENO, message.data(), message.size());
  return !isBroken_;
}

void Console::finishOutput() {
  while (hasOutput()) {
    pollfd polled{.fd = STDOUT_FILENO, .events = POLLOUT, .revents = 0};
    if (::poll(&polled, 1, secondInMilliseconds) <= 0 || !writeOutput()) return;
  }
}

bool Console::isInBackground() const {
  if (!inputIsTerminal_) return false;
  const pid_t foreground = ::tcgetpgrp(STDIN_FILENO);
  return foreground >= 0 &&
         foreground != ::getpgrp();  // no jobs, no background: reading tells more
}

bool Console::wantsInput(bool asking) const {
  return !inputEnded_ && (asking || inputIsTerminal_) && !isInBackground();
}

bool Console::readInput() {
  std::array<char, 4096> chunk{};
  const ssize_t count = ::read(STDIN_FILENO, chunk.data(), chunk.size());
  if (count < 0 && (errno == EINTR || errno == EAGAIN)) return true;
  if (count <= 0) {
    inputEnded_ = input_.count() == 0;
    input_.append("\n");  // what has no line feed is a line, too, and the end comes after it
    return !inputEnded_;
  }
  input_.append({chunk.data(), static_cast<std::size_t>(count)});
  return true;
}

std::optional<std::string_view> Console::nextLine() {
  const auto line = input_.nextLine();
  if (!line && input_.count() > longestTyped) input_ = LineBuffer{};
  return line;
}

void Console::forgetTypedAhead() {
  if (!inputIsTerminal_ || isInBackground()) return;
  input_ = LineBuffer{};
  ::tcflush(STDIN_FILENO, TCIFLUSH);
}

}  // namespace CorvaneControl::Headless
