#include "Driver.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <csignal>
#include <cstdint>
#include <exception>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <variant>
#include <vector>

#include <fcntl.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include "CorvaneControl/Bundle.h"
#include "CorvaneControl/CodexTranscript.h"
#include "CorvaneControl/ControlCommandLine.h"
#include "CorvaneControl/ControlProtocol.h"
#include "CorvaneControl/ControlSocket.h"
#include "CorvaneControl/Platform/System.h"
#include "CorvaneControl/Platform/Text.h"
#include "CorvaneControl/Transfer.h"
#include "CorvaneControl/UnixSocket.h"
#include "Printing.h"
#include "StandardInput.h"

namespace {

namespace CommandLine = CorvaneControl::ControlCommandLine;
namespace ControlCoding = CorvaneControl::ControlCoding;
using CorvaneControl::ControlRequest;
using CorvaneControl::ControlResponse;
using CorvaneControl::LineReader;
using CorvaneControl::Result;
using Command = ControlRequest::Command;

enum class ExitStatus : std::uint8_t {
  success = 0,
  refused = 1,  ///< The application gave no usable answer, or refused; or printing it failed.
  usage = 2,
  unreachable = 3,  ///< No connection, a request that could not be written, the end of `subscribe`.
};

template <class... Functions>
struct Overloaded : Functions... {
  using Functions::operator()...;
};
// Clang before 17 does not deduce these itself.
template <class... Functions>
Overloaded(Functions...) -> Overloaded<Functions...>;

/// Seconds to wait for the answer to a permission card: the user may take almost ten minutes.
constexpr int permissionTimeout = 590;
/// What poll(2) takes for no time-out.
constexpr int forEver = -1;

/// Ends without running destructors: taking a large input's tree apart would cost more than parsing
/// it did.
[[noreturn]] void end(ExitStatus status) { ::_exit(static_cast<int>(status)); }

/// Writes every byte, also to a descriptor that somebody else made non-blocking; false and `errno`
/// at failure.
bool write(std::string_view bytes, int descriptor) {
  return CorvaneControl::Transfer::writeAll(bytes, [&](const char* next, std::size_t count) {
    ssize_t written = ::write(descriptor, next, count);
    while (written < 0 && errno == EAGAIN) {
      pollfd writable{descriptor, POLLOUT, 0};
      ::poll(&writable, 1, -1);
      written = ::write(descriptor, next, count);
    }
    return written;
  });
}

[[noreturn]] void fail(std::string message, ExitStatus status) {
  message.push_back('\n');
  write(message, STDERR_FILENO);  // nobody is left to tell when this fails
  end(status);
}

/// Says why standard output takes nothing.
[[noreturn]] void failWriting(int code, ExitStatus status) {
  fail("The output can't be written: " + CorvaneControl::System::errorText(code), status);
}

[[noreturn]] void endSilently() { end(ExitStatus::success); }

/// Nothing here throws but what finds no memory.
[[noreturn]] void failWithoutMemory() {
  write("There is not enough memory.\n", STDERR_FILENO);
  end(ExitStatus::refused);
}

/// Prints the last thing that there is to say.
[[noreturn]] void finish(std::string_view text) {
  if (!write(text, STDOUT_FILENO)) failWriting(errno, ExitStatus::refused);
  end(ExitStatus::success);
}

/// Seconds to wait for each command's answer; 0 waits for ever.
constexpr std::array readTimeouts = {
    std::pair(Command::list, 10),     std::pair(Command::current, 10),
    std::pair(Command::switchTo, 10), std::pair(Command::launch, 240),
    std::pair(Command::stop, 60),     std::pair(Command::subscribe, 0),
    std::pair(Command::notify, 1)};
static_assert(readTimeouts.size() == wireNames(Command{}).size(), "every command has its own");

double readTimeout(Command command) {
  return std::ranges::find(readTimeouts, command, &std::pair<Command, int>::first)->second;
}

Result<int, CorvaneControl::UnixSocket::Failure> connect(double timeout) {
  auto connection = CorvaneControl::ControlSocket::connect(timeout);
  if (!connection || *connection > STDERR_FILENO) return connection;
  // A standard descriptor could not be occupied: what is printed would go to the application.
  ::close(*connection);
  return CorvaneControl::UnixSocket::Failure::system("socket", EBADF);
}

/// Whether what poll(2) says of standard output means that nobody reads it any more. Some systems
/// tell of a hang-up, too, when the other end of a socket will send nothing: agents see to that.
bool readerIsGone(short events) {
  if ((events & POLLERR) != 0) return true;
  if ((events & POLLHUP) == 0) return false;
  const auto before = std::signal(SIGPIPE, SIG_IGN);
  const bool takesNothing = ::send(STDOUT_FILENO, "", 0, 0) < 0;  // as whatever is no socket
  std::signal(SIGPIPE, before);
  return takesNothing;
}

/// Waits until the socket has something to read. False once nobody reads standard output any more,
/// unless somebody may come back to it, and after `timeout` milliseconds (-1: never).
bool waitForInput(int socket, bool mayComeBack, int timeout) {
  std::array<pollfd, 2> waited = {pollfd{socket, POLLIN, 0}, pollfd{STDOUT_FILENO, POLLHUP, 0}};
  for (;;) {
    const int ready = ::poll(waited.data(), waited.size(), timeout);
    if (ready == 0) return false;
    if (ready < 0) {
      if (errno != EINTR) return false;
      continue;
    }
    if (!mayComeBack && readerIsGone(waited[1].revents)) return false;
    if (waited[0].revents != 0) return true;
    waited[1].fd = -1;  // a device that cannot be waited for, or a reader that may come back
  }
}

/// Passes on every line the moment it has arrived whole, all lines of one read at once.
[[noreturn]] void follow(int socket) {
  // A socket that blocks all the same is read as well, but nobody sees a reader that goes away.
  [[maybe_unused]] const bool waits = !CorvaneControl::UnixSocket::makeNonBlocking(socket);
  const bool isFIFO = CorvaneControl::System::isFIFO(STDOUT_FILENO);
  // The signal would end this without a word, and a reader that comes back would wait for ever.
  if (isFIFO) std::signal(SIGPIPE, SIG_IGN);
  LineReader reader(socket);
  for (;;) {
    errno = 0;
    if (const auto lines = reader.nextLines()) {
      if (write(*lines, STDOUT_FILENO)) continue;
      if (errno == EPIPE && !isFIFO) end(ExitStatus::unreachable);  // like any filter
      failWriting(errno, ExitStatus::unreachable);
    } else if (errno != EAGAIN) {
      fail("Corvane quit.", ExitStatus::unreachable);
    } else if (!waitForInput(socket, isFIFO, forEver)) {
      end(ExitStatus::unreachable);
    }
  }
}

/// The line that answers a permission card; absent, too, when the agent that asked is gone: then
/// the application is to take the card away.
std::optional<std::string_view> answerToCard(LineReader& reader) {
  if (!CorvaneControl::UnixSocket::makeNonBlocking(reader.fd)) return reader.next();
  for (;;) {
    errno = 0;
    const auto line = reader.next();
    if (line || errno != EAGAIN) return line;
    if (!waitForInput(reader.fd, false, permissionTimeout * 1000)) return std::nullopt;
  }
}

/// The application's answer; a failure when there is none in time, or none that can be read.
Result<ControlResponse, ControlCoding::Failure> answer(int socket, bool isAboutCard = false) {
  LineReader reader(socket);
  const auto line = isAboutCard ? answerToCard(reader) : reader.next();
  if (!line) return ControlCoding::Failure{"no line"};
  return ControlCoding::decodeInPlace<ControlResponse>(reader.buffer.inPlace(*line));
}

/// The exchange of `notify`: whatever goes wrong, silence.
[[noreturn]] void notify(const ControlRequest& request, StandardInput& input) {
  const auto socket = connect(readTimeout(request.command));
  if (!socket) end(ExitStatus::success);
  if (request.permission) {
    CorvaneControl::UnixSocket::configure(*socket, permissionTimeout,
                                          CorvaneControl::UnixSocket::connectionWriteTimeout);
  }
  if (!CorvaneControl::UnixSocket::write(ControlCoding::line(request), *socket)) {
    end(ExitStatus::success);
  }
  const auto response = answer(*socket, request.permission.has_value());
  if (response && request.permission) {
    const auto reply = response->hookOutput(request, input.value());
    if (reply) write(*reply, STDOUT_FILENO);
  }
  end(ExitStatus::success);
}

/// The exchange of every other command.
[[noreturn]] void exchange(const CommandLine::Run& run) {
  const Command command = run.request.command;
  const auto socket = connect(readTimeout(command));
  if (!socket) {
    fail("Corvane isn't running, or is too old for corvanectl.", ExitStatus::unreachable);
  }
  if (!CorvaneControl::UnixSocket::write(ControlCoding::line(run.request), *socket)) {
    fail("Corvane closed the connection.", ExitStatus::unreachable);
  }
  if (command == Command::subscribe) follow(*socket);

  const auto response = answer(*socket);
  if (!response) fail("Corvane didn't answer.", ExitStatus::refused);
  if (!response->ok) fail(response->error.value_or("Corvane refused."), ExitStatus::refused);
  if (response->error) write(*response->error + "\n", STDERR_FILENO);
  finish(printed(*response, run.format, command));
}

[[noreturn]] void showVersion() {
  std::string version = "development build";
  if (const auto info = CorvaneControl::enclosingAppInfo()) {
    const auto entry = info->find("CFBundleShortVersionString");
    if (entry != info->end()) version = entry->second;
  }
  finish(version + "\n");
}

[[noreturn]] void showUsage(const std::string& message, bool isNotify) {
  if (isNotify) fail("corvanectl notify: " + message, ExitStatus::success);
  fail((message.empty() ? "" : message + "\n\n") + std::string(CommandLine::usage),
       ExitStatus::usage);
}

std::string currentDirectory() {
  return CorvaneControl::Text::repaired(CorvaneControl::System::currentFolder().value_or(""));
}

[[noreturn]] void act(std::span<char*> words, bool isNotify) {
  std::vector<std::string> arguments;
  arguments.reserve(words.size());
  for (const char* const word : words) {
    arguments.push_back(CorvaneControl::Text::repaired(word));
  }
  StandardInput input;
  const CommandLine::Process process{
      .standardInput = [&] { return input.value(); },
      .currentDirectory = currentDirectory,
      .parentProcess = [] { return std::optional<std::int32_t>(::getppid()); },
      .homeFolder = CorvaneControl::System::homeFolder,
      .autoReviewed =
          [](const std::string& path) {
            return CorvaneControl::CodexTranscript::autoReviewed(path);
          },
      .environment = CorvaneControl::System::environmentValue,
  };
  std::visit(
      Overloaded{[&](const CommandLine::Run& run) {
                   if (isNotify) notify(run.request, input);
                   exchange(run);
                 },
                 [&](const CommandLine::Usage& problem) { showUsage(problem.message, isNotify); },
                 [](CommandLine::Nothing) { end(ExitStatus::success); },
                 [](CommandLine::Help) { finish(std::string(CommandLine::usage) + "\n"); },
                 [](CommandLine::Version) { showVersion(); }},
      CommandLine::parse(arguments, process));
  end(ExitStatus::success);
}

}  // namespace

void drive(std::span<char*> words) {
  // A file that may not grow is a failed write, which is told as any other.
  std::signal(SIGXFSZ, SIG_IGN);
  const bool isNotify = !words.empty() && words.front() == std::string_view("notify");
  // A reply that nobody reads must not end the hook with a signal.
  if (isNotify) std::signal(SIGPIPE, SIG_IGN);
  // Where memory is so short that not even an exception finds room.
  std::set_terminate(isNotify ? endSilently : failWithoutMemory);
  try {
    act(words, isNotify);
  } catch (...) {
    if (isNotify) endSilently();
    failWithoutMemory();
  }
}
