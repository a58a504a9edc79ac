// What corvane-headless promises under load: every request is answered, every event arrives, nobody
// waits for somebody else, and afterwards memory, descriptors and computing are back where they
// were. Prints its figures; ends with 1 when a promise is broken.
//
//   Load HEADLESS [SCALE]
//
// HEADLESS is the program; SCALE (1 unless given) divides the numbers, for a quick look.

#include <algorithm>
#include <array>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <functional>
#include <memory>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include <fcntl.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include "CorvaneControl/Platform/System.h"
#include "CorvaneControl/UnixSocket.h"

namespace {

using Clock = std::chrono::steady_clock;
namespace System = CorvaneControl::System;
namespace UnixSocket = CorvaneControl::UnixSocket;

constexpr double patience = 30;  // seconds

int broken = 0;

void promise(bool kept, const std::string& what) {
  if (kept) return;
  std::printf("  BROKEN: %s\n", what.c_str());
  ++broken;
}

/// A client that never waits for long.
class Client {
 public:
  explicit Client(const std::string& path) : socket_(connected(path)), lines_(socket_) {}
  ~Client() { close(); }
  Client(Client&& other) noexcept
      : socket_(std::exchange(other.socket_, -1)), lines_(std::move(other.lines_)) {}
  Client& operator=(Client&&) = delete;

  bool isConnected() const { return socket_ >= 0; }
  void close() {
    if (socket_ >= 0) ::close(std::exchange(socket_, -1));
  }
  bool send(std::string_view bytes) const { return UnixSocket::write(bytes, socket_); }
  void sendWithoutWaiting(std::string_view bytes) const {
    if (!UnixSocket::makeNonBlocking(socket_)) return;
    [[maybe_unused]] const bool all = UnixSocket::write(bytes, socket_);
  }
  /// The next line; empty when none comes, or the connection ends.
  std::string line() { return std::string(lines_.next().value_or("")); }
  std::string ask(std::string_view request) {
    return send(std::string(request) + "\n") ? line() : std::string();
  }

 private:
  static int connected(const std::string& path) {
    const auto connection = UnixSocket::connect(path, patience);
    return connection ? *connection : -1;
  }

  int socket_;
  CorvaneControl::LineReader lines_;
};

const std::string list = R"({"command":"list"})";
const std::string current = R"({"command":"current"})";
const std::string okay = R"({"ok":true)";

/// The server under load.
class Server {
 public:
  Server(const std::string& program, const std::string& path, const char* answer) : path_(path) {
    std::array<int, 2> input{};
    if (::pipe(input.data()) != 0) std::abort();
    ::fcntl(input[1], F_SETFD, FD_CLOEXEC);
    pid_ = ::fork();
    if (pid_ == 0) {
      ::dup2(input[0], STDIN_FILENO);
      const int null = ::open("/dev/null", O_WRONLY);
      ::dup2(null, STDOUT_FILENO);
      ::execl(program.c_str(), program.c_str(), "--socket", path.c_str(), "--answer", answer,
              static_cast<char*>(nullptr));
      ::_exit(127);
    }
    ::close(input[0]);
    input_ = input[1];
    for (int attempt = 0; attempt < 500 && !Client(path).isConnected(); ++attempt) {
      ::usleep(10'000);
    }
  }
  ~Server() {
    ::kill(pid_, SIGTERM);
    int status = 0;
    ::waitpid(pid_, &status, 0);
    promise(WIFEXITED(status) && WEXITSTATUS(status) == 0, "the server ends with 0");
    promise(!std::filesystem::exists(path_), "its socket is gone");
    ::close(input_);
  }
  Server(const Server&) = delete;
  Server& operator=(const Server&) = delete;

  Client client() const { return Client(path_); }
  /// What the user types.
  void type(std::string_view text) const {
    promise(::write(input_, text.data(), text.size()) == static_cast<ssize_t>(text.size()),
            "what is typed is taken");
  }
  /// A number of /proc/PID/status in kilobytes; 0 where there is none.
  long kilobytes(const std::string& key) const {
    std::ifstream status(proc() + "status");
    for (std::string line; std::getline(status, line);) {
      if (line.starts_with(key + ":"))
        return std::strtol(line.c_str() + key.size() + 1, nullptr, 10);
    }
    return 0;
  }
  long descriptors() const {
    std::error_code none;
    return std::distance(std::filesystem::directory_iterator(proc() + "fd", none), {});
  }
  /// Hundredths of a second that it has computed.
  long computed() const {
    std::ifstream status(proc() + "stat");
    std::string text((std::istreambuf_iterator<char>(status)), {});
    char* next = text.data() + text.rfind(')') + 1;
    const auto skipWord = [&] { next = std::find(next + 1, text.data() + text.size(), ' '); };
    for (int word = 3; word < 14; ++word) skipWord();
    const long user = std::strtol(next, &next, 10);
    return user + std::strtol(next, nullptr, 10);
  }

 private:
  std::string proc() const { return "/proc/" + std::to_string(pid_) + "/"; }

  std::string path_;
  pid_t pid_ = -1;
  int input_ = -1;
};

/// Runs one part and prints what it took.
void part(const Server& server, const std::string& name, const std::function<std::string()>& load) {
  const auto begin = Clock::now();
  const long before = server.computed();
  const std::string figures = load();
  const double seconds = std::chrono::duration<double>(Clock::now() - begin).count();
  std::printf("%-44s %7.2f s, %5.2f s computing, %6ld KB, %4ld descriptors; %s\n", name.c_str(),
              seconds, static_cast<double>(server.computed() - before) / 100,
              server.kilobytes("VmRSS"), server.descriptors(), figures.c_str());
  std::fflush(stdout);
}

std::vector<Client> clients(const Server& server, std::size_t count) {
  std::vector<Client> all;
  for (std::size_t number = 0; number < count; ++number) all.push_back(server.client());
  return all;
}

std::string requests(const Server& server, std::size_t count, std::size_t total) {
  std::vector<Client> all = clients(server, count);
  std::size_t answered = 0;
  for (std::size_t round = 0; round < total / count; ++round) {
    for (Client& client : all) promise(client.send(current + "\n"), "a request is taken");
    for (Client& client : all) answered += client.line().starts_with(okay) ? 1U : 0U;
  }
  const std::size_t expected = total / count * count;
  promise(answered == expected, "every request is answered");
  return std::to_string(answered) + " answers to " + std::to_string(count) + " clients";
}

std::string events(const Server& server, std::size_t count, std::size_t marks) {
  std::vector<Client> subscribers = clients(server, count);
  for (Client& subscriber : subscribers) {
    promise(!subscriber.ask(R"({"command":"subscribe"})").empty(), "a subscriber is welcome");
  }
  Client client = server.client();
  const std::string folder = System::homeFolder().value_or("") + "/Notes";
  for (std::size_t number = 0; number < marks; ++number) {
    const std::string mark = std::to_string(number);
    const std::string request = R"({"command":"notify","agent":"claude","kind":"done","cwd":")" +
                                folder + R"(","message":"mark )" + mark + "\"}";
    promise(client.ask(request).starts_with(okay), "a mark is taken");
  }
  std::size_t seen = 0;
  for (Client& subscriber : subscribers) {
    for (std::size_t number = 0; number < marks; ++number) {
      const std::string wanted = "\"mark " + std::to_string(number) + "\"";
      seen += subscriber.line().find(wanted) != std::string::npos ? 1U : 0U;
    }
  }
  promise(seen == count * marks, "every event arrives, in order");
  return std::to_string(seen) + " events to " + std::to_string(count) + " subscribers";
}

/// Clients that do what they shouldn't, while others are served.
std::string hostility(const Server& server, std::size_t count) {
  std::vector<Client> stalling = clients(server, count);
  for (const Client& client : stalling) promise(client.send("{\"comm"), "half a request is taken");
  std::size_t served = 0;
  const auto serveOther = [&] { served += server.client().ask(list).starts_with(okay) ? 1U : 0U; };

  std::string flood;
  while (flood.size() < 200'000) flood += list + "\n";
  std::vector<Client> flooding = clients(server, count / 10);
  for (const Client& client : flooding) {
    client.sendWithoutWaiting(flood);  // nor does it read an answer
    serveOther();
  }
  for (std::size_t number = 0; number < count; ++number) {
    Client client = server.client();
    promise(client.send(number % 2 == 0 ? "{\"command\":" : list + "\n" + current + "\n"),
            "who leaves is listened to");
  }
  serveOther();
  const std::string piece(1 << 20, 'x');
  Client endless = server.client();
  std::size_t sent = 0;
  while (sent < 50 && endless.send(piece)) ++sent;
  promise(sent < 50, "a request without an end is refused");
  serveOther();
  promise(served == flooding.size() + 2, "others are served meanwhile");
  return std::to_string(served) + " others served, " + std::to_string(sent) + " MB taken of 50";
}

std::string cards(const Server& server, std::size_t count) {
  std::vector<Client> agents = clients(server, count);
  for (std::size_t number = 0; number < count; ++number) {
    const std::string subject = "command " + std::to_string(number);
    promise(agents[number].send(R"({"command":"notify","agent":"claude","kind":"needs-input",)"
                                R"("permission":{"action":"run","subject":")" +
                                subject + R"(","lines":[{"text":")" + subject +
                                R"(","kind":"plain"}],"complete":true}})"
                                "\n"),
            "a card is taken");
  }
  promise(server.client().ask(list).starts_with(okay), "others are served meanwhile");
  for (std::size_t number = 0; number < count / 10; ++number) agents[number * 10].close();
  std::size_t denied = 0;
  for (std::size_t number = 0; number < count; ++number) {
    if (number % 10 == 0) continue;
    server.type("d\n");
    denied += agents[number].line() == R"({"decision":"denied","ok":true})" ? 1U : 0U;
  }
  promise(denied == count - count / 10, "every card is answered that was not withdrawn");
  return std::to_string(denied) + " of " + std::to_string(count) +
         " answered, the others withdrawn";
}

/// Waits until the server has done what clients that are gone have asked for, and let go of them.
void settle(const Server& server, long descriptors) {
  const auto deadline = Clock::now() + std::chrono::duration<double>(patience);
  while (server.descriptors() > descriptors && Clock::now() < deadline) ::usleep(20'000);
  promise(server.descriptors() <= descriptors, "descriptors are back");
}

void idle(const Server& server) {
  const long before = server.computed();
  ::sleep(3);
  const long computed = server.computed() - before;
  std::printf("%-44s %ld ms computing in 3 s\n", "idle", computed * 10);
  promise(computed <= 1, "who waits does not compute");
}

}  // namespace

int main(int count, char** words) {
  if (count < 2) {
    std::fputs("usage: Load HEADLESS [SCALE]\n", stderr);
    return 2;
  }
  std::signal(SIGPIPE, SIG_IGN);
  rlimit limit{};
  ::getrlimit(RLIMIT_NOFILE, &limit);
  limit.rlim_cur = std::min<rlim_t>(limit.rlim_max, 10'240);
  ::setrlimit(RLIMIT_NOFILE, &limit);
  const std::size_t scale = count > 2 ? std::max(std::strtoul(words[2], nullptr, 10), 1UL) : 1;

  std::string folder = std::filesystem::temp_directory_path() / "corvane-load.XXXXXX";
  if (::mkdtemp(folder.data()) == nullptr) return 2;
  {
    const Server server(words[1], folder + "/s", "ask");
    const long descriptors = server.descriptors();
    requests(server, 500 / scale, 5'000 / scale);  // what it keeps for itself is there now
    settle(server, descriptors);
    std::printf("%-44s %ld KB, %ld descriptors\n", "at first", server.kilobytes("VmRSS"),
                descriptors);
    const auto scaled = [&](std::size_t number) { return number / scale; };
    std::array<long, 2> kilobytes{};
    for (long& size : kilobytes) {
      part(server, "clients at once, each after the others",
           [&] { return requests(server, scaled(500), scaled(100'000)); });
      part(server, "subscribers while marks change",
           [&] { return events(server, scaled(100), scaled(1'000)); });
      part(server, "clients that stall, flood, vanish, never end",
           [&] { return hostility(server, scaled(500)); });
      part(server, "queued cards", [&] { return cards(server, scaled(1'000)); });
      settle(server, descriptors);
      idle(server);
      size = server.kilobytes("VmRSS");
      std::printf("%-44s %ld KB (peak %ld KB), %ld descriptors\n", "afterwards", size,
                  server.kilobytes("VmHWM"), server.descriptors());
    }
    // The allocator keeps some of what the first time took.
    promise(kilobytes[1] - kilobytes[0] < 4096, "memory is flat");
  }
  std::filesystem::remove_all(folder);
  std::printf("%d promises broken\n", broken);
  return broken == 0 ? 0 : 1;
}
