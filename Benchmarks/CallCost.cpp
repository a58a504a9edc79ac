// What a call of corvanectl costs beside the least that the same exchange can cost: both are run in
// shuffled order against the same peer, and the medians are compared.
//
//   CallCost [ROUNDS]       the table of times
//   CallCost serve FOLDER   only the peer and the inputs, in FOLDER, until standard input ends

#include <algorithm>
#include <array>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <random>
#include <string>
#include <string_view>
#include <vector>

#include <fcntl.h>
#include <poll.h>
#include <spawn.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include "CorvaneControl/Platform/JSON.h"
#include "CorvaneControl/UnixSocket.h"

extern char** environ;

namespace {

namespace UnixSocket = CorvaneControl::UnixSocket;

constexpr std::string_view listAnswer =
    R"({"ok":true,"workspaces":[{"active":true,"id":"00000000-0000-4000-8000-000000000001",)"
    R"("name":"Mail","section":"Work","shortcut":"⌥1","windows":2},{"active":false,)"
    R"("id":"00000000-0000-4000-8000-000000000002","name":"Code Review","section":"Work",)"
    R"("windows":1}]})"
    "\n";
constexpr std::string_view notifyAnswer = "{\"decision\":\"allowed\",\"ok\":true}\n";
constexpr int subscribedLines = 1'000'000;
constexpr std::size_t subscribedLineSize = 200;  // bytes, with the line feed

[[noreturn]] void die(const std::string& what) {
  std::fprintf(stderr, "%s: %s\n", what.c_str(), std::strerror(errno));
  std::exit(1);
}

/// Text as agents write it: lines of code with quotes and slashes, as a JSON string.
std::string sampleText(std::size_t size) {
  static constexpr std::string_view lines[] = {
      "#include \"project/Settings.h\"\n",
      "\n",
      "/// The settings of one user, read when they are first asked for.\n",
      "std::optional<Settings> Settings::read(const std::string& path) {\n",
      "  const auto file = Files::open(path + \"/settings.json\");\n",
      "  if (!file) return std::nullopt;  // nothing was ever set\n",
      "  for (const auto& [key, value] : file->members()) {\n",
      "    if (key == \"theme\") settings.theme = value.string();\n",
      "  }\n",
      "  return settings;\n",
      "}\n"};
  std::mt19937 random(1);
  std::string text;
  while (text.size() < size) text += lines[random() % std::size(lines)];
  text.resize(size);
  std::string json;
  CorvaneControl::JSON::writeString(text, CorvaneControl::JSON::Slashes::plain, json);
  return json;
}

/// Hook input of a "Write", of about `size` bytes, half of them in the tool's response if it has
/// one.
std::string hookInput(std::string_view event, std::size_t size) {
  const bool finished = event == "PostToolUse";
  const std::string content = sampleText(size * 9 / (finished ? 20 : 10));
  std::string input = R"({"session_id":"00000000-0000-4000-8000-000000000001","transcript_path":)"
                      R"("/t.jsonl","cwd":"/home/user/project","permission_mode":"default",)"
                      R"("hook_event_name":")" +
                      std::string(event) + R"(","tool_name":"Write","tool_input":{"file_path":)" +
                      R"("/home/user/project/a.c","content":)" + content + "}";
  if (finished) input += R"(,"tool_response":{"type":"create","content":)" + content + "}";
  return input + "}\n";
}

bool writeAll(int descriptor, std::string_view bytes) {
  while (!bytes.empty()) {
    const ssize_t size = ::write(descriptor, bytes.data(), bytes.size());
    if (size < 0) return false;
    bytes.remove_prefix(static_cast<std::size_t>(size));
  }
  return true;
}

void writeFile(const std::string& path, const std::string& bytes) {
  const int file = ::open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0600);
  if (file < 0 || !writeAll(file, bytes)) die(path);
  ::close(file);
}

/// Writes the inputs, in a process of its own: the memory that a program was seen to use begins
/// with what its parent used.
void makeInputs(const std::string& folder) {
  const pid_t child = ::fork();
  if (child == 0) {
    writeFile(folder + "/4k.json", hookInput("PostToolUse", 4'000));
    writeFile(folder + "/card.json", hookInput("PermissionRequest", 4'000));
    writeFile(folder + "/50k.json", hookInput("PostToolUse", 50'000));
    writeFile(folder + "/32m.json", hookInput("PostToolUse", 32'000'000));
    ::_exit(0);
  }
  ::waitpid(child, nullptr, 0);
}

void serveExchange(int connection) {
  CorvaneControl::LineReader reader(connection);
  const auto request = reader.next();
  if (!request) return;
  const bool lists = request->find("\"command\":\"list\"") != std::string_view::npos;
  static_cast<void>(UnixSocket::write(lists ? listAnswer : notifyAnswer, connection));
}

void serveSubscription(int connection) {
  CorvaneControl::LineReader reader(connection);
  if (!reader.next()) return;
  constexpr std::string_view frame = "{\"event\":\"workspace\",\"name\":\"\"}\n";
  std::string lines;
  for (int count = 0; count < 1000; ++count) {
    lines += "{\"event\":\"workspace\",\"name\":\"" +
             std::string(subscribedLineSize - frame.size(), 'x') + "\"}\n";
  }
  for (int count = 0; count < subscribedLines / 1000; ++count) {
    if (!UnixSocket::write(lines, connection)) return;
  }
}

/// Answers one exchange a connection on the first listener, and a long subscription on the second.
[[noreturn]] void serve(int exchanges, int subscriptions) {
  for (;;) {
    std::array<pollfd, 2> listeners = {pollfd{exchanges, POLLIN, 0},
                                       pollfd{subscriptions, POLLIN, 0}};
    if (::poll(listeners.data(), listeners.size(), -1) < 0) continue;
    for (const pollfd& listener : listeners) {
      if ((listener.revents & POLLIN) == 0) continue;
      const int connection = ::accept(listener.fd, nullptr, nullptr);
      if (connection < 0) continue;
      if (listener.fd == exchanges) {
        serveExchange(connection);
      } else {
        serveSubscription(connection);
      }
      ::close(connection);
    }
  }
}

struct Cost {
  double milliseconds = 0;
  double megabytes = 0;  ///< The most memory that was resident.
};

/// Copies a file into a pipe, in a process of its own.
void feed(const std::string& path, int pipe) {
  if (::fork() != 0) return;
  const int file = ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
  std::array<char, 65536> chunk;
  for (ssize_t size = 0; (size = ::read(file, chunk.data(), chunk.size())) > 0;) {
    if (!writeAll(pipe, {chunk.data(), static_cast<std::size_t>(size)})) break;
  }
  ::_exit(0);
}

/// Runs a program to its end, its output thrown away. `input` is a file that is its standard input,
/// by itself or through a pipe; the null device when empty.
Cost measure(std::vector<std::string> words, const std::string& input, bool throughPipe) {
  posix_spawn_file_actions_t actions;
  ::posix_spawn_file_actions_init(&actions);
  std::array<int, 2> pipe{-1, -1};
  if (throughPipe) {
    if (::pipe(pipe.data()) != 0) die("pipe");
    ::fcntl(pipe[1], F_SETFD, FD_CLOEXEC);
    ::posix_spawn_file_actions_adddup2(&actions, pipe[0], STDIN_FILENO);
    ::posix_spawn_file_actions_addclose(&actions, pipe[0]);
  } else {
    const char* const file = input.empty() ? "/dev/null" : input.c_str();
    ::posix_spawn_file_actions_addopen(&actions, STDIN_FILENO, file, O_RDONLY, 0);
  }
  ::posix_spawn_file_actions_addopen(&actions, STDOUT_FILENO, "/dev/null", O_WRONLY, 0);
  ::posix_spawn_file_actions_addopen(&actions, STDERR_FILENO, "/dev/null", O_WRONLY, 0);
  std::vector<char*> arguments;
  for (std::string& word : words) arguments.push_back(word.data());
  arguments.push_back(nullptr);

  const auto start = std::chrono::steady_clock::now();
  pid_t child = 0;
  if (::posix_spawn(&child, arguments[0], &actions, nullptr, arguments.data(), environ) != 0) {
    die(words.front());
  }
  if (throughPipe) {
    feed(input, pipe[1]);
    ::close(pipe[0]);
    ::close(pipe[1]);
  }
  int status = 0;
  rusage usage{};
  if (::wait4(child, &status, 0, &usage) != child) die("wait4");
  const std::chrono::duration<double, std::milli> time = std::chrono::steady_clock::now() - start;
  if (throughPipe) ::wait(nullptr);  // the one that fed it
  ::posix_spawn_file_actions_destroy(&actions);
  return {time.count(), static_cast<double>(usage.ru_maxrss) / 1024};
}

struct Case {
  const char* name;
  std::vector<std::string> command;  ///< The words for corvanectl.
  const char* floor;                 ///< What the floor does instead.
  std::string socket;
  std::string input;
  bool throughPipe;
  int share;   ///< Of the rounds, in percent: long calls are run less often.
  double aim;  ///< The ratio that we aim for.
};

std::vector<Case> casesIn(const std::string& folder) {
  const std::string exchange = folder + "/exchange";
  const std::vector<std::string> notify = {"notify", "--agent", "claude"};
  const std::string large = folder + "/32m.json";
  return {
      {"list", {"list"}, "list", exchange, "", false, 100, 1.10},
      {"application absent", {"list"}, "list", folder + "/none", "", false, 100, 1.05},
      {"subscribe, 200 MB", {"subscribe"}, "subscribe", folder + "/stream", "", false, 2, 2.5},
      {"notify, 4 KB", notify, "notify", exchange, folder + "/4k.json", false, 100, 1.08},
      {"notify, card of 4 KB", notify, "notify", exchange, folder + "/card.json", false, 100, 1.08},
      {"notify, 50 KB", notify, "notify", exchange, folder + "/50k.json", false, 100, 1.20},
      {"notify, 32 MB file", notify, "notify", exchange, large, false, 5, 12},
      {"notify, 32 MB pipe", notify, "notify", exchange, large, true, 5, 5},
  };
}

double median(std::vector<double> values) {
  std::ranges::sort(values);
  return values[values.size() / 2];
}

void compare(const std::vector<Case>& cases, int rounds) {
  struct Run {
    std::size_t index;
    bool isFloor;
  };
  std::vector<Run> runs;
  for (std::size_t index = 0; index < cases.size(); ++index) {
    for (int round = 0; round < std::max(rounds * cases[index].share / 100, 3); ++round) {
      runs.push_back({index, false});
      runs.push_back({index, true});
    }
  }
  std::ranges::shuffle(runs, std::mt19937(7));

  std::vector<std::array<std::vector<double>, 2>> times(cases.size());
  std::vector<double> memory(cases.size());
  for (const Run& run : runs) {
    const Case& chosen = cases[run.index];
    ::setenv("CORVANE_SOCKET", chosen.socket.c_str(), 1);
    std::vector<std::string> words = {CORVANECTL};
    words.insert(words.end(), chosen.command.begin(), chosen.command.end());
    if (run.isFloor) words = {CORVANE_FLOOR, chosen.floor, chosen.socket};
    const Cost cost = measure(words, chosen.input, chosen.throughPipe);
    times[run.index][run.isFloor].push_back(cost.milliseconds);
    if (!run.isFloor) memory[run.index] = std::max(memory[run.index], cost.megabytes);
  }

  std::printf("%-22s %13s %13s %8s %8s %11s\n", "", "corvanectl", "floor", "ratio", "aim",
              "memory");
  for (std::size_t index = 0; index < cases.size(); ++index) {
    const double command = median(times[index][0]);
    const double floor = median(times[index][1]);
    std::printf("%-22s %10.3f ms %10.3f ms %8.2f %8.2f %8.1f MB\n", cases[index].name, command,
                floor, command / floor, cases[index].aim, memory[index]);
  }
}

}  // namespace

int main(int count, char** words) {
  std::signal(SIGPIPE, SIG_IGN);
  const bool onlyServe = count == 3 && std::string_view(words[1]) == "serve";
  std::string folder = onlyServe ? words[2] : "/tmp/corvane-benchmark-XXXXXX";
  if (!onlyServe && !::mkdtemp(folder.data())) die("mkdtemp");
  makeInputs(folder);
  const auto exchanges = UnixSocket::listen(folder + "/exchange", 128);
  const auto subscriptions = UnixSocket::listen(folder + "/stream", 128);
  if (!exchanges || !subscriptions) die("listen");
  const pid_t peer = ::fork();
  if (peer == 0) serve(*exchanges, *subscriptions);

  if (onlyServe) {
    std::puts("ready");
    std::fflush(stdout);
    char byte = 0;
    while (::read(STDIN_FILENO, &byte, 1) > 0) {
    }
  } else {
    compare(casesIn(folder), count > 1 ? std::max(std::atoi(words[1]), 1) : 400);
  }
  ::kill(peer, SIGKILL);
  for (const char* const name :
       {"/4k.json", "/card.json", "/50k.json", "/32m.json", "/exchange", "/stream"}) {
    ::unlink((folder + name).c_str());
  }
  if (!onlyServe) ::rmdir(folder.c_str());
  return 0;
}
