#include "corvane-headless/Console.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <ctime>
#include <utility>

#include <fcntl.h>
#include <poll.h>
#include <sys/ioctl.h>
#include <termios.h>
#include <unistd.h>

#include "CorvaneControl/Platform/System.h"
#include "CorvaneControl/UnixSocket.h"
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

/// Reads in a row, before others get their turn.
constexpr int mostReadAtOnce = 16;

bool isInputReady() {
  pollfd polled{.fd = STDIN_FILENO, .events = POLLIN, .revents = 0};
  return ::poll(&polled, 1, 0) > 0;
}

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

volatile std::sig_atomic_t wakePipe = -1;

void wake(int /*signal*/) {
  const int code = errno;
  // A pipe that is full says already what there is to say.
  [[maybe_unused]] const ssize_t count = ::write(wakePipe, "", 1);
  errno = code;
}

bool isTerminalOfAnotherJob() {
  const pid_t foreground = ::tcgetpgrp(STDIN_FILENO);
  return foreground >= 0 &&
         foreground != ::getpgrp();  // no jobs, no background: reading tells more
}

/// Whether we have the keyboard, and the modes that the terminal has for everybody else: also while
/// this process is stopped, and when it has quit.
volatile std::sig_atomic_t haveKeyboard = 0;
termios modesOfOthers{};

void giveTerminalBack() {
  if (haveKeyboard != 0 && !isTerminalOfAnotherJob()) {
    ::tcsetattr(STDIN_FILENO, TCSANOW, &modesOfOthers);
  }
}

void handle(int signal, void (*handler)(int), int flags) {
  struct sigaction action {};
  action.sa_handler = handler;
  action.sa_flags = flags;
  ::sigaction(signal, &action, nullptr);
}

/// Stops or quits, as the user wants (Ctrl-Z, Ctrl-\), with the terminal as it was: not every shell
/// sees to that.
void leaveTerminal(int signal);

/// Nothing handles the signal while it is handled: it does what it does by default.
void leaveTerminalAt(int signal) {
  handle(signal, leaveTerminal, SA_RESTART | static_cast<int>(SA_RESETHAND) | SA_NODEFER);
}

void leaveTerminal(int signal) {
  const int code = errno;
  giveTerminalBack();
  ::raise(signal);  // returns when it goes on, at once where nobody could see to that
  leaveTerminalAt(signal);
  wake(signal);
  errno = code;
}

/// A descriptor that becomes readable at each change of the window, and when the process goes on
/// after it was stopped; -1 when there is none to give. It stays for as long as the process runs.
int watchTerminal() {
  int ends[2];
  if (::pipe(ends) != 0) return -1;
  for (const int end : ends) {
    ::fcntl(end, F_SETFD, FD_CLOEXEC);
    // A handler that waits for room would wait for ever.
    if (!UnixSocket::makeNonBlocking(end)) return -1;
  }
  wakePipe = ends[1];
  handle(SIGWINCH, wake, SA_RESTART);
  handle(SIGCONT, wake, SA_RESTART);
  for (const int signal : {SIGTSTP, SIGQUIT}) {
    struct sigaction before {};
    if (::sigaction(signal, nullptr, &before) != 0 || before.sa_handler != SIG_DFL) continue;
    leaveTerminalAt(signal);
  }
  return ends[0];
}

}  // namespace

Console::Console(bool quiet)
    : quiet_(quiet),
      inputIsTerminal_(::isatty(STDIN_FILENO) == 1),
      outputIsTerminal_(::isatty(STDOUT_FILENO) == 1),
      colours_(outputIsTerminal_ && environmentAllowsColours()),
      windowChanges_(outputIsTerminal_ ? watchTerminal() : -1) {}

Console::~Console() { leaveKeyboard(); }

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
  put(line.append("\n"));
}

void Console::append(std::string_view bytes) {
  if (outputFailed_) return;
  output_.append(bytes);
  appended_ += bytes.size();
}

void Console::put(std::string_view text) {
  if (isRowOpen_) append("\n");
  append(text);
  if (isRowOpen_) append(typed_.shown());
}

void Console::say(std::string_view sentence) { put(flowed(sentence, style().columns - 1)); }

void Console::sayDropped() {
  say("What was typed before the card could be read was dropped; type it again.");
}

void Console::ask(std::string_view drawing) {
  dropTyped();
  put(drawing);
  card_.drawn(appended_);
}

void Console::askAgain(std::string_view drawing) {
  put(drawing);
  if (card_.isComing()) card_.drawn(appended_);  // else the user has seen it
}

Style Console::style() const {
  Style style{.colours = colours_};
  winsize size{};
  if (!outputIsTerminal_ || ::ioctl(STDOUT_FILENO, TIOCGWINSZ, &size) != 0) return style;
  if (size.ws_col > 0) style.columns = std::max<std::size_t>(size.ws_col, fewestColumns);
  if (size.ws_row > 0) style.rows = size.ws_row;
  if (size.ws_col > 0 && size.ws_col < fewestColumns) style.rows = 0;  // its rows would be broken
  return style;
}

void Console::windowHasChanged() const {
  std::array<char, 64> chunk{};
  while (::read(windowChanges_, chunk.data(), chunk.size()) > 0) {
  }
}

bool Console::writeOutput() {
  if (output_.writeWhileReady(STDOUT_FILENO) != OutputQueue::Outcome::failed) {
    if (card_.written(written(), CardOnScreen::Clock::now())) dropTyped();
    return true;
  }
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

bool Console::isInBackground() const { return inputIsTerminal_ && isTerminalOfAnotherJob(); }

void Console::takeKeyboard() {
  termios modes{};
  if (!inputIsTerminal_ || !outputIsTerminal_ || inputEnded_ || isInBackground()) return;
  if (::tcgetattr(STDIN_FILENO, &modes) != 0 || (modes.c_lflag & ICANON) == 0) return;
  haveKeyboard = 0;
  modesOfOthers = modes;
  haveKeyboard = 1;
  modes.c_lflag &= ~static_cast<tcflag_t>(ICANON | ECHO);
  modes.c_cc[VMIN] = 1;
  modes.c_cc[VTIME] = 0;
  ::tcsetattr(STDIN_FILENO, TCSANOW, &modes);
}

void Console::leaveKeyboard() {
  giveTerminalBack();
  haveKeyboard = 0;
}

bool Console::isWithoutInput() {
  if (inputIsTerminal_) return false;
  if (isInputReady()) readInput();
  return inputEnded_;
}

bool Console::wantsInput(bool asking) const {
  if (inputEnded_) return false;
  return inputIsTerminal_ ? !isInBackground() : asking && !card_.isComing();
}

void Console::readInput() {
  std::array<char, 4096> chunk{};
  const ssize_t count = ::read(STDIN_FILENO, chunk.data(), chunk.size());
  if (count < 0 && (errno == EINTR || errno == EAGAIN)) return;
  if (count < 0 && isInBackground()) return;  // was typed for the job that has the terminal now
  if (count <= 0) {
    inputEnded_ = piped_.count() == 0;
    piped_.append("\n");  // what has no line feed is a line, too, and the end comes after it
    return;
  }
  const std::string_view bytes(chunk.data(), static_cast<std::size_t>(count));
  if (!inputIsTerminal_) {
    piped_.append(bytes);
    return;
  }
  const std::string echo = typed_.take(bytes, card_.isTooNew(CardOnScreen::Clock::now()));
  if (haveKeyboard == 0 || (modesOfOthers.c_lflag & ECHO) == 0) return;
  append(echo);
  isRowOpen_ = !typed_.shown().empty();
}

void Console::closeInput() {
  inputEnded_ = true;
  leaveKeyboard();
}

std::optional<TypedLine> Console::nextLine() {
  // What was typed while the card is on its way is dropped when it is there.
  if (inputIsTerminal_) return card_.isComing() ? std::nullopt : typed_.nextLine();
  const auto line = piped_.nextLine();
  if (!line && piped_.count() > longestTyped) piped_.reset();
  if (!line) return std::nullopt;
  return TypedLine{.text = std::string(*line)};
}

void Console::dropTyped() {
  if (!inputIsTerminal_) return;
  if (!isInBackground()) {
    // Reads what is there, and does not flush it: the end that somebody types is one all the same.
    for (int count = 0; count < mostReadAtOnce && !inputEnded_ && isInputReady(); ++count) {
      readInput();
    }
    if (haveKeyboard == 0) ::tcflush(STDIN_FILENO, TCIFLUSH);  // half a line, which can't be read
  }
  const bool dropped = !typed_.isEmpty();
  typed_.forget();
  if (dropped) sayDropped();
  isRowOpen_ = false;
}

}  // namespace CorvaneControl::Headless
