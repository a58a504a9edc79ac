#include <algorithm>
#include <array>
#include <cerrno>
#include <climits>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <new>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <variant>
#include <vector>

#include <fcntl.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include "CorvaneControl/ControlProtocol.h"
#include "CorvaneControl/ControlSocket.h"
#include "CorvaneControl/Platform/System.h"
#include "corvane-headless/CommandLine.h"
#include "corvane-headless/Console.h"
#include "corvane-headless/EndSignals.h"
#include "corvane-headless/HooksCommand.h"
#include "corvane-headless/Server.h"
#include "corvane-headless/SocketFile.h"
#include "corvane-headless/Visible.h"
#include "corvane-headless/Workspaces.h"
#include "corvane-headless/WorkspacesFile.h"

namespace {

namespace Headless = CorvaneControl::Headless;
namespace CommandLine = Headless::CommandLine;
namespace System = CorvaneControl::System;

constexpr int usageError = 2;
/// Connections beyond this number wait; more than the system gives by itself, and than it allows.
constexpr rlim_t descriptorsWanted = 10240;

void raiseDescriptorLimit() {
  rlimit limit{};
  if (::getrlimit(RLIMIT_NOFILE, &limit) != 0 || limit.rlim_cur >= descriptorsWanted) return;
  limit.rlim_cur = std::min(descriptorsWanted, limit.rlim_max);
  ::setrlimit(RLIMIT_NOFILE, &limit);  // without it there is room for fewer clients, no less
}

int fail(const std::string& message, int status = EXIT_FAILURE) {
  std::fputs(("corvane-headless: " + message + "\n").c_str(), stderr);
  return status;
}

/// Needs none.
int failWithoutMemory() {
  constexpr std::string_view message = "corvane-headless: there is not enough memory\n";
  [[maybe_unused]] const ssize_t count = ::write(STDERR_FILENO, message.data(), message.size());
  return EXIT_FAILURE;
}

int print(std::string_view text) {
  const bool written = std::fwrite(text.data(), 1, text.size(), stdout) == text.size();
  if (std::fflush(stdout) == 0 && written) return EXIT_SUCCESS;
  return fail("standard output: " + System::errorText(errno));
}

/// Where corvanectl looks for the socket; the folder for it is made when it is the usual one.
/// Absent after a message.
std::optional<std::string> usualSocket() {
  auto path = System::environmentValue("CORVANE_SOCKET");
  if (path && !path->empty()) return path;
  path = CorvaneControl::ControlSocket::path("Corvane");
  if (!path) {
    fail("there is no home folder to serve a socket in; use --socket PATH");
    return std::nullopt;
  }
  if (const auto problem = Headless::makeFolderOf(*path)) {
    fail(problem->description);
    return std::nullopt;
  }
  return path;
}

/// Opens the terminal that standard output goes to anew, so that writing to it never waits: one
/// that takes no output (Ctrl-S, a remote shell that stalls) takes less than poll(2) promises. That
/// mode belongs to the open file, and the one that we were lent is the shell's as well. A terminal
/// that can't be opened, such as another user's, is written to as it is.
void openTerminalAnew() {
  std::array<char, PATH_MAX> name{};
  if (::isatty(STDOUT_FILENO) == 0) return;
  int terminal = -1;
  if (::ttyname_r(STDOUT_FILENO, name.data(), name.size()) == 0) {
    terminal = ::open(name.data(), O_WRONLY | O_NOCTTY | O_NONBLOCK | O_CLOEXEC);
  }
  if (terminal < 0) {  // its name may be another container's
    terminal = ::open("/proc/self/fd/1", O_WRONLY | O_NOCTTY | O_NONBLOCK | O_CLOEXEC);
  }
  if (terminal < 0) return;
  ::dup2(terminal, STDOUT_FILENO);
  ::close(terminal);
}

CommandLine::Answering usualAnswering() {
  const bool hasTerminal = ::isatty(STDIN_FILENO) == 1 && ::isatty(STDOUT_FILENO) == 1;
  return hasTerminal ? CommandLine::Answering::ask : CommandLine::Answering::leave;
}

int serve(const CommandLine::Serve& options) {
  const auto home = System::homeFolder();
  std::vector<CorvaneControl::WorkspaceSummary> all = Headless::WorkspacesFile::sample(home);
  if (options.workspaces) {
    auto read = Headless::WorkspacesFile::read(*options.workspaces, home);
    if (!read) return fail(read.failure().description);
    all = *std::move(read);
  }

  raiseDescriptorLimit();
  ::umask(S_IRWXG | S_IRWXO);  // the socket is the user's alone from its first moment
  const Headless::EndSignals signals;
  if (!signals.isUsable()) return fail("pipe: " + System::errorText(errno));
  const auto path = options.socket ? options.socket : usualSocket();
  if (!path) return EXIT_FAILURE;
  auto socket = Headless::SocketFile::claim(*path, signals.descriptor());
  if (!socket) return fail(socket.failure().description);

  openTerminalAnew();
  Headless::Console console(options.quiet);
  auto answering = options.answering.value_or(usualAnswering());
  const bool nobodyAnswers = answering == CommandLine::Answering::ask && console.isWithoutInput();
  if (nobodyAnswers) answering = CommandLine::Answering::leave;
  console.log("Serving " + std::to_string(all.size()) +
              (all.size() == 1 ? " workspace at " : " workspaces at ") + Headless::visible(*path));
  if (answering == CommandLine::Answering::leave) {
    console.log(std::string("Agents that ask for permission ask by themselves: there is no ") +
                (nobodyAnswers ? "input to read answers from." : "terminal to ask on."));
  }
  std::optional<std::string> problem;
  {
    Headless::Server server(*std::move(socket), Headless::Workspaces(std::move(all)), answering,
                            console, signals.descriptor());
    problem = server.run();
  }
  console.finishOutput();  // makes room in a log that nobody took
  console.log("Stopped.");
  console.finishOutput();
  if (problem) return fail(*problem);
  return console.hasFailed() ? EXIT_FAILURE : EXIT_SUCCESS;
}

/// The absolute path of the tool that agents are to call; absent when nobody knows it.
std::optional<std::string> toolFor(const CommandLine::Hooks& options) {
  if (!options.tool) {
    const auto program = System::executablePath();
    if (!program) return std::nullopt;
    return program->substr(0, program->rfind('/') + 1) + "corvanectl";
  }
  std::string_view tool = *options.tool;
  if (tool.starts_with('/')) return options.tool;
  if (tool.starts_with("./")) tool.remove_prefix(2);
  auto folder = System::currentFolder();
  if (folder) folder->append("/").append(tool);
  return folder;
}

int lookAfterHooks(const CommandLine::Hooks& options) {
  const auto home = options.home ? options.home : System::homeFolder();
  if (!home) return fail("there is no home folder to look for agents in; use --home DIR");
  const auto tool = toolFor(options);
  if (!tool) return fail("nobody knows where corvanectl is; use --tool with an absolute path");
  const Headless::HooksReport report = Headless::lookAfterHooks(options, *home, *tool);
  for (const std::string& message : report.messages) fail(message);
  const int status = print(report.output);
  return report.hasProblem ? EXIT_FAILURE : status;
}

int act(const CommandLine::Parsed& parsed) {
  if (const auto* const options = std::get_if<CommandLine::Serve>(&parsed)) return serve(*options);
  if (const auto* const usage = std::get_if<CommandLine::Usage>(&parsed)) {
    return fail(usage->message + " See corvane-headless --help.", usageError);
  }
  if (const auto* const options = std::get_if<CommandLine::Hooks>(&parsed)) {
    return lookAfterHooks(*options);
  }
  if (std::holds_alternative<CommandLine::Version>(parsed)) {
    return print("corvane-headless " CORVANE_VERSION "\n");
  }
  return print(CommandLine::help);
}

}  // namespace

int main(int count, char** words) {
  System::protectConstants();
  // No client may take the place of one.
  if (!System::occupyStandardDescriptors()) {
    return fail("standard descriptors: " + System::errorText(errno));
  }
  // A file that may not grow is a failed write, which is told as any other.
  std::signal(SIGXFSZ, SIG_IGN);
  try {
    // As they are: names of files need not be UTF-8.
    return act(CommandLine::parse({words + std::min(count, 1), words + count}));
  } catch (const std::bad_alloc&) {
    return failWithoutMemory();
  }
}
