// What a call of corvanectl costs beside the least that the same exchange can cost: all contenders
// are run in shuffled order against the same peer, and their medians are what counts. Every one is
// first checked for doing its work, and while it is measured the exchanges are counted.
//
//   CallCost ROUNDS FLOOR INPUTS [floor:]NAME=PROGRAM ...
//
// FLOOR is the C program, INPUTS the folder of recorded inputs, each PROGRAM a corvanectl or
// another build of the C program. Writes a table for Benchmarks/report to standard output, and what
// it is doing to standard error.

#include <algorithm>
#include <array>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <iterator>
#include <optional>
#include <random>
#include <string>
#include <string_view>
#include <vector>

#include <fcntl.h>
#include <poll.h>
#include <spawn.h>
#include <sys/mman.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>

extern char** environ;

namespace {

constexpr int subscribedLines = 1'000'000;
constexpr std::size_t subscribedLineSize = 200;  // bytes, with the line feed
constexpr std::string_view notifyAnswer = "{\"ok\":true}\n";

[[noreturn]] void stop(const std::string& what) {
  std::fprintf(stderr, "CallCost: %s\n", what.c_str());
  std::exit(1);
}

[[noreturn]] void die(const std::string& what) { stop(what + ": " + std::strerror(errno)); }

// --- Inputs ----------------------------------------------------------------------------------

std::string fileBytes(const std::string& path) {
  std::ifstream file(path, std::ios::binary);
  if (!file) stop("cannot read " + path);
  return {std::istreambuf_iterator<char>(file), {}};
}

void writeFile(const std::string& path, const std::string& bytes) {
  std::ofstream file(path, std::ios::binary);
  if (!(file << bytes).flush()) stop("cannot write " + path);
}

/// Hook input of a "Write" that is done, of about `size` bytes: code with quotes, slashes and line
/// breaks, as what was to be written and once more in the tool's response.
std::string hookInput(std::size_t size) {
  static constexpr std::string_view lines[] = {
      R"(#include \"project/Settings.h\"\n)",
      R"(\n)",
      R"(/// The settings of one user, read when they are first asked for.\n)",
      R"(std::optional<Settings> Settings::read(const std::string& path) {\n)",
      R"(  const auto file = Files::open(path + \"/settings.json\");\n)",
      R"(  if (!file) return std::nullopt;  // nothing was ever set\n)",
      R"(  for (const auto& [key, value] : file->members()) {\n)",
      R"(    if (key == \"theme\") settings.theme = value.string();\n)",
      R"(  }\n)",
      R"(  return settings;\n)",
      R"(}\n)"};
  const std::string begin =
      R"({"session_id":"00000000-0000-4000-8000-000000000001","transcript_path":"/t.jsonl",)"
      R"("cwd":"/home/user/project","permission_mode":"default","hook_event_name":"PostToolUse",)"
      R"("tool_name":"Write","tool_input":{"file_path":"/home/user/project/a.c","content":")";
  const std::string middle = R"("},"tool_response":{"type":"create","content":")";
  const std::string end = "\"}}\n";
  const std::size_t share = (size - begin.size() - middle.size() - end.size()) / 2;
  std::mt19937 random(1);
  std::string content;
  for (;;) {
    const std::string_view line = lines[random() % std::size(lines)];
    if (content.size() + line.size() > share) break;
    content += line;
  }
  content.append(share - content.size(), 'x');
  return begin + content + middle + content + end;
}

// --- The application's end ---------------------------------------------------------------------

/// What the peer tells: it is a process of its own.
struct Seen {
  std::uint64_t exchanges = 0;
  std::uint64_t subscriptions = 0;      ///< Those that took all lines.
  std::array<char, 4096> request = {};  ///< The beginning of the last one, with its line feed.
};

bool writeAll(int descriptor, std::string_view bytes) {
  while (!bytes.empty()) {
    const ssize_t size = ::write(descriptor, bytes.data(), bytes.size());
    if (size < 0) return false;
    bytes.remove_prefix(static_cast<std::size_t>(size));
  }
  return true;
}

/// Reads until a line feed; false when the other end left before.
bool readRequest(int connection, Seen& seen) {
  static std::array<char, 65536> buffer;
  std::size_t whole = 0;
  for (;;) {
    const ssize_t count = ::read(connection, buffer.data(), buffer.size());
    if (count <= 0) return false;
    const auto size = static_cast<std::size_t>(count);
    const std::size_t kept = std::min(size, seen.request.size() - 1 - whole);
    std::memcpy(seen.request.data() + whole, buffer.data(), kept);
    whole += kept;
    seen.request[whole] = '\0';
    if (buffer[size - 1] == '\n') return true;
  }
}

void serveExchange(int connection, std::string_view listAnswer, Seen& seen) {
  if (!readRequest(connection, seen)) return;
  const bool lists = std::strstr(seen.request.data(), "\"list\"") != nullptr;
  if (writeAll(connection, lists ? listAnswer : notifyAnswer)) ++seen.exchanges;
}

void serveSubscription(int connection, Seen& seen) {
  if (!readRequest(connection, seen)) return;
  constexpr std::string_view frame = "{\"event\":\"workspace\",\"name\":\"\"}\n";
  std::string lines;
  for (int count = 0; count < 1000; ++count) {
    lines += "{\"event\":\"workspace\",\"name\":\"" +
             std::string(subscribedLineSize - frame.size(), 'x') + "\"}\n";
  }
  for (int count = 0; count < subscribedLines / 1000; ++count) {
    if (!writeAll(connection, lines)) return;
  }
  ++seen.subscriptions;
}

int listenAt(const std::string& path) {
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  if (path.size() >= sizeof address.sun_path) stop("too long for a socket: " + path);
  path.copy(address.sun_path, path.size());
  const int listener = ::socket(AF_UNIX, SOCK_STREAM, 0);
  ::fcntl(listener, F_SETFD, FD_CLOEXEC);
  if (::bind(listener, reinterpret_cast<sockaddr*>(&address), sizeof address) != 0 ||
      ::listen(listener, 128) != 0) {
    die(path);
  }
  return listener;
}

/// Answers one exchange a connection on the first listener, and a long subscription on the second.
[[noreturn]] void serve(int exchanges, int subscriptions, const std::string& listAnswer,
                        Seen& seen) {
  for (;;) {
    std::array<pollfd, 2> listeners = {pollfd{exchanges, POLLIN, 0},
                                       pollfd{subscriptions, POLLIN, 0}};
    if (::poll(listeners.data(), listeners.size(), -1) < 0) continue;
    for (const pollfd& listener : listeners) {
      if ((listener.revents & POLLIN) == 0) continue;
      const int connection = ::accept(listener.fd, nullptr, nullptr);
      if (connection < 0) continue;
      if (listener.fd == exchanges) {
        serveExchange(connection, listAnswer, seen);
      } else {
        serveSubscription(connection, seen);
      }
      ::close(connection);
    }
  }
}

// --- One run -----------------------------------------------------------------------------------

struct Ended {
  int status = 0;  ///< As `wait4` gives it.
  double microseconds = 0;
  long kilobytes = 0;       ///< The most memory that was resident.
  long faults = 0;          ///< Page faults for which no disk was read (minor ones).
  std::string output;       ///< Its first megabyte, if it was to be kept.
  std::size_t written = 0;  ///< Bytes of output, if it was to be kept.
};

struct Standard {
  std::string input;  ///< A file; the null device when empty.
  bool throughPipe = false;
  bool keepOutput = false;
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

void readOutput(int pipe, Ended& ended) {
  static std::array<char, 65536> chunk;
  for (ssize_t size = 0; (size = ::read(pipe, chunk.data(), chunk.size())) > 0;) {
    const auto count = static_cast<std::size_t>(size);
    ended.written += count;
    if (ended.output.size() < 1'000'000) ended.output.append(chunk.data(), count);
  }
}

/// Runs a program to its end.
Ended run(std::vector<std::string> words, const Standard& standard) {
  posix_spawn_file_actions_t actions;
  ::posix_spawn_file_actions_init(&actions);
  std::array<int, 2> input{-1, -1};
  std::array<int, 2> output{-1, -1};
  const auto open = [](std::array<int, 2>& ends) {
    if (::pipe(ends.data()) != 0) die("pipe");
    for (const int end : ends) ::fcntl(end, F_SETFD, FD_CLOEXEC);
  };
  if (standard.throughPipe) {
    open(input);
    ::posix_spawn_file_actions_adddup2(&actions, input[0], STDIN_FILENO);
  } else {
    const char* const file = standard.input.empty() ? "/dev/null" : standard.input.c_str();
    ::posix_spawn_file_actions_addopen(&actions, STDIN_FILENO, file, O_RDONLY, 0);
  }
  if (standard.keepOutput) {
    open(output);
    ::posix_spawn_file_actions_adddup2(&actions, output[1], STDOUT_FILENO);
  } else {
    ::posix_spawn_file_actions_addopen(&actions, STDOUT_FILENO, "/dev/null", O_WRONLY, 0);
  }
  ::posix_spawn_file_actions_addopen(&actions, STDERR_FILENO, "/dev/null", O_WRONLY, 0);
  std::vector<char*> arguments;
  for (std::string& word : words) arguments.push_back(word.data());
  arguments.push_back(nullptr);

  Ended ended;
  const auto start = std::chrono::steady_clock::now();
  pid_t child = 0;
  if (::posix_spawnp(&child, arguments[0], &actions, nullptr, arguments.data(), environ) != 0) {
    die(words.front());
  }
  if (standard.throughPipe) {
    feed(standard.input, input[1]);
    for (const int end : input) ::close(end);
  }
  if (standard.keepOutput) {
    ::close(output[1]);
    readOutput(output[0], ended);
    ::close(output[0]);
  }
  rusage usage{};
  if (::wait4(child, &ended.status, 0, &usage) != child) die("wait4");
  const std::chrono::duration<double, std::micro> time = std::chrono::steady_clock::now() - start;
  if (standard.throughPipe) ::wait(nullptr);  // the one that fed it
  ::posix_spawn_file_actions_destroy(&actions);
  ended.microseconds = time.count();
  ended.kilobytes = usage.ru_maxrss;
  ended.faults = usage.ru_minflt;
  return ended;
}

// --- The works ---------------------------------------------------------------------------------

struct Work {
  const char* name;   ///< For the report.
  const char* title;  ///< Empty: only a point of the curve of sizes.
  std::vector<std::string> arguments;
  std::string floor;  ///< What the floor does instead.
  std::string input = {};
  std::string requests = {};  ///< Part of the request that has to come; empty: none comes.
  bool throughPipe = false;
  bool subscribes = false;
  bool counted = false;  ///< Whether its instructions are.
  int share = 100;       ///< Of the rounds, in percent: long calls are run less often.
  std::size_t size = 0;  ///< Bytes of input, for the curve.

  int status() const { return subscribes ? 3 : 0; }  // "Corvane quit."
};

std::vector<Work> worksIn(const std::string& folder, const std::string& inputs) {
  const std::vector<std::string> notify = {"notify", "--agent", "claude"};
  const std::string working =
      "\"activity\":\"working\",\"agent\":\"claude\",\"command\":\"notify\"";
  const std::string large = folder + "/32m.json";
  return {
      {.name = "list",
       .title = "`list --json`, ten workspaces (an answer of 2 KB)",
       .arguments = {"list", "--json"},
       .floor = "list",
       .requests = R"({"command":"list"})",
       .counted = true},
      {.name = "absent",
       .title = "`notify`, application absent, hook input of 1 KB",
       .arguments = notify,
       .floor = "notify",
       .input = folder + "/1k.json",
       .counted = true},
      {.name = "hook4",
       .title = "`notify`, a tool was used, hook input of 4 KB",
       .arguments = notify,
       .floor = "notify",
       .input = inputs + "/hook-4k.json",
       .requests = working,
       .counted = true},
      {.name = "card",
       .title = "`notify`, permission card for a file of 2 KB (a request of 3 KB)",
       .arguments = notify,
       .floor = "notify",
       .input = inputs + "/card-4k.json",
       .requests = R"("permission":{"action":"write")",
       .counted = true},
      {.name = "hook50",
       .title = "`notify`, a tool was used, hook input of 50 KB",
       .arguments = notify,
       .floor = "notify",
       .input = inputs + "/hook-50k.json",
       .requests = working,
       .counted = true},
      {.name = "stop",
       .title = "`notify`, end of a turn, message of 5 KB with Markdown",
       .arguments = notify,
       .floor = "notify",
       .input = inputs + "/stop-5k.json",
       .requests = "pages/prices.html now has a <table> that \u2026",
       .counted = true},
      {.name = "file32",
       .title = "`notify`, hook input of 32 MB from a file; the C program drops it",
       .arguments = notify,
       .floor = "notify",
       .input = large,
       .requests = working,
       .share = 6,
       .size = 32'000'000},
      {.name = "keep32",
       .title = "the same; the C program keeps it",
       .arguments = notify,
       .floor = "keep",
       .input = large,
       .requests = working,
       .share = 6},
      {.name = "pipe32",
       .title = "`notify`, hook input of 32 MB through a pipe; the C program drops it",
       .arguments = notify,
       .floor = "notify",
       .input = large,
       .requests = working,
       .throughPipe = true,
       .share = 6},
      {.name = "pipekeep32",
       .title = "the same; the C program keeps it",
       .arguments = notify,
       .floor = "keep",
       .input = large,
       .requests = working,
       .throughPipe = true,
       .share = 6},
      {.name = "subscribe",
       .title = "`subscribe`, 10^6 lines of 200 bytes to the null device",
       .arguments = {"subscribe"},
       .floor = "subscribe",
       .subscribes = true,
       .share = 4},
      {.name = "size1k",
       .title = "",
       .arguments = notify,
       .floor = "notify",
       .input = folder + "/1k.json",
       .requests = working,
       .size = 1'000},
      {.name = "size4k",
       .title = "",
       .arguments = notify,
       .floor = "notify",
       .input = folder + "/4k.json",
       .requests = working,
       .size = 4'000},
      {.name = "size16k",
       .title = "",
       .arguments = notify,
       .floor = "notify",
       .input = folder + "/16k.json",
       .requests = working,
       .size = 16'000},
      {.name = "size64k",
       .title = "",
       .arguments = notify,
       .floor = "notify",
       .input = folder + "/64k.json",
       .requests = working,
       .size = 64'000},
      {.name = "size1m",
       .title = "",
       .arguments = notify,
       .floor = "notify",
       .input = folder + "/1m.json",
       .requests = working,
       .share = 50,
       .size = 1'000'000},
  };
}

/// Writes the inputs, in a process of its own: the memory that a program was seen to use begins
/// with what its parent used.
void makeInputs(const std::string& folder) {
  const pid_t child = ::fork();
  if (child == 0) {
    writeFile(folder + "/1k.json", hookInput(1'000));
    writeFile(folder + "/4k.json", hookInput(4'000));
    writeFile(folder + "/16k.json", hookInput(16'000));
    writeFile(folder + "/64k.json", hookInput(64'000));
    writeFile(folder + "/1m.json", hookInput(1'000'000));
    writeFile(folder + "/32m.json", hookInput(32'000'000));
    ::_exit(0);
  }
  int status = 0;
  if (::waitpid(child, &status, 0) != child || status != 0) stop("the inputs could not be written");
}

// --- Who is measured ---------------------------------------------------------------------------

/// The C program, `corvanectl`, or another way to the same exchange.
enum class Kind : std::uint8_t { floor, ours, other };

/// A program that does a work, with the words that it is run with.
struct Contender {
  std::string name;
  std::vector<std::string> words;
  Kind kind = Kind::other;
};

bool isInstalled(const char* program) {
  return run({"sh", "-c", std::string("command -v ") + program}, {}).status == 0;
}

/// What a user would write instead, of the tools that are installed. None decides anything: they
/// send a line, and print the one that comes back.
std::vector<Contender> otherWays(const Work& work) {
  std::vector<Contender> ways;
  const auto shell = [&](const char* name, const char* script) {
    ways.push_back({name, {"sh", "-c", script}});
  };
  static const bool hasNetcat =
      run({"sh", "-c", "nc -h 2>&1 | grep -q -e '-U'"}, {}).status == 0;  // not all know -U
  static const bool hasSocat = isInstalled("socat");
  static const bool hasJq = isInstalled("jq");
  static const bool hasPython = isInstalled("python3");
  if (std::string_view(work.name) == "list") {
    constexpr auto netcat = R"(printf '{"command":"list"}\n' | nc -U "$CORVANE_SOCKET")";
    constexpr auto socat = R"(printf '{"command":"list"}\n' | socat - UNIX:"$CORVANE_SOCKET")";
    if (hasNetcat) shell("sh, nc", netcat);
    if (hasSocat) shell("sh, socat", socat);
    if (hasPython) {
      ways.push_back({"python3",
                      {"python3", "-c",
                       "import os, socket\n"
                       "s = socket.socket(socket.AF_UNIX)\n"
                       "s.connect(os.environ['CORVANE_SOCKET'])\n"
                       "s.sendall(b'{\"command\":\"list\"}\\n')\n"
                       "print(s.makefile().readline(), end='')\n"}});
    }
  }
  if (std::string_view(work.name) == "hook4") {
    constexpr auto netcat =
        R"(jq -c '{agent:"claude",command:"notify",activity:"working",cwd,session:.session_id}')"
        R"( | nc -U "$CORVANE_SOCKET")";
    constexpr auto socat =
        R"(jq -c '{agent:"claude",command:"notify",activity:"working",cwd,session:.session_id}')"
        R"( | socat - UNIX:"$CORVANE_SOCKET")";
    if (hasJq && hasNetcat) shell("sh, jq, nc", netcat);
    if (hasJq && hasSocat) shell("sh, jq, socat", socat);
    if (hasPython) {
      ways.push_back({"python3",
                      {"python3", "-c",
                       "import json, os, socket, sys\n"
                       "i = json.load(sys.stdin)\n"
                       "r = {'agent': 'claude', 'command': 'notify', 'activity': 'working',\n"
                       "     'cwd': i['cwd'], 'session': i['session_id']}\n"
                       "s = socket.socket(socket.AF_UNIX)\n"
                       "s.connect(os.environ['CORVANE_SOCKET'])\n"
                       "s.sendall(json.dumps(r).encode() + b'\\n')\n"
                       "s.makefile().readline()\n"}});
    }
  }
  return ways;
}

std::vector<Contender> contenders(const Work& work, const std::string& socket,
                                  const std::vector<Contender>& programs) {
  std::vector<Contender> all;
  for (const Contender& program : programs) {
    std::vector<std::string>& words = all.emplace_back(program).words;
    if (program.kind == Kind::floor) {
      words.insert(words.end(), {work.floor, socket});
    } else {
      words.insert(words.end(), work.arguments.begin(), work.arguments.end());
    }
  }
  for (Contender& way : otherWays(work)) all.push_back(std::move(way));
  return all;
}

// --- The measurement ---------------------------------------------------------------------------

class Measurement {
 public:
  Measurement(std::string folder, const std::string& inputs)
      : folder_(std::move(folder)), listAnswer_(fileBytes(inputs + "/answer-2k.json")) {
    void* const shared =
        ::mmap(nullptr, sizeof(Seen), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
    if (shared == MAP_FAILED) die("mmap");
    seen_ = new (shared) Seen;
    const int exchanges = listenAt(folder_ + "/exchange");
    const int subscriptions = listenAt(folder_ + "/stream");
    peer_ = ::fork();
    if (peer_ == 0) serve(exchanges, subscriptions, listAnswer_, *seen_);
    ::close(exchanges);
    ::close(subscriptions);
  }
  Measurement(const Measurement&) = delete;
  Measurement& operator=(const Measurement&) = delete;
  ~Measurement() { ::kill(peer_, SIGKILL); }

  std::string socketOf(const Work& work) const {
    if (work.subscribes) return folder_ + "/stream";
    return folder_ + (work.requests.empty() ? "/none" : "/exchange");
  }

  /// Ends the process unless the contender does its work: what is broken must not look fast.
  void check(const Work& work, const Contender& contender) {
    const std::string what = contender.name + ", " + work.name + ": ";
    const Seen before = *seen_;
    seen_->request[0] = '\0';
    ::setenv("CORVANE_SOCKET", socketOf(work).c_str(), 1);
    const Ended ended = run(contender.words, {work.input, work.throughPipe, true});
    if (!WIFEXITED(ended.status) || WEXITSTATUS(ended.status) != work.status()) {
      stop(what + "it did not end with " + std::to_string(work.status()));
    }
    settle();
    if (work.subscribes) {
      if (ended.written != subscribedLines * subscribedLineSize) {
        stop(what + "it printed " + std::to_string(ended.written) + " bytes");
      }
      return;
    }
    const std::uint64_t expected = work.requests.empty() ? 0 : 1;
    if (seen_->exchanges - before.exchanges != expected) stop(what + "there was no exchange");
    const std::string_view request(seen_->request.data());
    if (contender.kind == Kind::ours && request.find(work.requests) == std::string_view::npos) {
      stop(what + "it sent " + std::string(request));
    }
    const bool lists = work.floor == "list";
    if (lists && ended.output != listAnswer_) stop(what + "it printed " + ended.output);
  }

  /// User instructions of one run, as callgrind counts them.
  std::optional<long long> instructions(const Work& work, const Contender& contender) {
    std::vector<std::string> words = {"valgrind", "--tool=callgrind",
                                      "--callgrind-out-file=/dev/null",
                                      "--log-file=" + folder_ + "/counted"};
    words.insert(words.end(), contender.words.begin(), contender.words.end());
    ::setenv("CORVANE_SOCKET", socketOf(work).c_str(), 1);
    run(words, {work.input, work.throughPipe, false});
    const std::string log = fileBytes(folder_ + "/counted");
    constexpr std::string_view mark = "Collected : ";
    const std::size_t found = log.find(mark);
    if (found == std::string::npos) return std::nullopt;
    return std::atoll(log.c_str() + found + mark.size());
  }

  /// Time and memory of one run.
  Ended measure(const Work& work, const Contender& contender) {
    ::setenv("CORVANE_SOCKET", socketOf(work).c_str(), 1);
    Ended ended = run(contender.words, {work.input, work.throughPipe, false});
    if (!WIFEXITED(ended.status) || WEXITSTATUS(ended.status) != work.status()) {
      stop(contender.name + ", " + work.name + ": it failed while it was measured");
    }
    if (work.subscribes) {
      ++subscriptions_;
    } else if (!work.requests.empty()) {
      ++exchanges_;
    }
    return ended;
  }

  /// Begins to count the exchanges, and ends the process unless all of them took place.
  void beginCounting() {
    settle();
    counted_ = *seen_;
  }
  void endCounting() {
    settle();
    if (seen_->exchanges - counted_.exchanges != exchanges_ ||
        seen_->subscriptions - counted_.subscriptions != subscriptions_) {
      stop("not every call that was measured made its exchange");
    }
  }

 private:
  /// Lets the peer come to the end of what it is at.
  static void settle() { ::usleep(20'000); }

  std::string folder_;
  std::string listAnswer_;
  Seen* seen_ = nullptr;
  pid_t peer_ = -1;
  Seen counted_;
  std::uint64_t exchanges_ = 0;
  std::uint64_t subscriptions_ = 0;
};

double quantile(const std::vector<double>& sorted, double part) {
  return sorted[static_cast<std::size_t>(part * static_cast<double>(sorted.size() - 1) + 0.5)];
}

struct Series {
  const Work* work;
  Contender contender;
  std::optional<long long> instructions = {};
  std::vector<double> microseconds = {};
  std::vector<double> faults = {};
  long kilobytes = 0;
};

void print(Series& series) {
  std::ranges::sort(series.microseconds);
  std::ranges::sort(series.faults);
  std::printf("%s\t%s\t%zu\t%s\t%.1f\t%.1f\t%.1f\t%ld\t%zu\t%.0f\t%s\n", series.work->name,
              series.work->title, series.work->size, series.contender.name.c_str(),
              quantile(series.microseconds, 0.5), quantile(series.microseconds, 0.25),
              quantile(series.microseconds, 0.75), series.kilobytes, series.microseconds.size(),
              quantile(series.faults, 0.5),
              series.instructions ? std::to_string(*series.instructions).c_str() : "");
}

void compare(const std::string& folder, int rounds, const std::string& inputs,
             const std::vector<Contender>& programs) {
  const std::vector<Work> works = worksIn(folder, inputs);
  Measurement measurement(folder, inputs);
  std::vector<Series> all;
  for (const Work& work : works) {
    for (Contender& one : contenders(work, measurement.socketOf(work), programs)) {
      all.push_back({&work, std::move(one)});
    }
  }

  std::fprintf(stderr, "Checking that everybody does the work.\n");
  for (const Series& series : all) measurement.check(*series.work, series.contender);

  std::vector<Series*> runs;
  for (Series& series : all) {
    const int count = std::max(rounds * series.work->share / 100, 5);
    runs.insert(runs.end(), static_cast<std::size_t>(count), &series);
  }
  std::ranges::shuffle(runs, std::mt19937(7));
  std::fprintf(stderr, "Measuring %zu runs, in shuffled order.\n", runs.size());
  measurement.beginCounting();
  for (Series* const series : runs) {
    const Ended ended = measurement.measure(*series->work, series->contender);
    series->microseconds.push_back(ended.microseconds);
    series->faults.push_back(static_cast<double>(ended.faults));
    series->kilobytes = std::max(series->kilobytes, ended.kilobytes);
  }
  measurement.endCounting();

  if (isInstalled("valgrind")) {
    std::fprintf(stderr, "Counting instructions.\n");
    for (Series& series : all) {
      if (!series.work->counted || series.contender.kind == Kind::other) continue;
      series.instructions = measurement.instructions(*series.work, series.contender);
    }
  } else {
    std::fprintf(stderr, "No instructions are counted: valgrind is not installed.\n");
  }
  for (Series& series : all) print(series);
}

}  // namespace

int main(int count, char** words) {
  if (count < 5) {
    std::fprintf(stderr, "usage: CallCost ROUNDS FLOOR INPUTS [floor:]NAME=PROGRAM ...\n");
    return 2;
  }
  std::signal(SIGPIPE, SIG_IGN);
  std::vector<Contender> programs = {{"floor", {words[2]}, Kind::floor}};
  for (int index = 4; index < count; ++index) {
    const std::string_view word = words[index];
    const std::size_t equals = word.find('=');
    if (equals == std::string_view::npos) stop("no NAME=PROGRAM: " + std::string(word));
    constexpr std::string_view floor = "floor:";
    const bool isFloor = word.starts_with(floor);
    const std::size_t name = isFloor ? floor.size() : 0;
    programs.push_back({std::string(word.substr(name, equals - name)),
                        {std::string(word.substr(equals + 1))},
                        isFloor ? Kind::floor : Kind::ours});
  }
  std::string folder = "/tmp/corvane-benchmark-XXXXXX";
  if (!::mkdtemp(folder.data())) die("mkdtemp");
  makeInputs(folder);
  compare(folder, std::max(std::atoi(words[1]), 1), words[3], programs);
  for (const char* const name : {"/1k.json", "/4k.json", "/16k.json", "/64k.json", "/1m.json",
                                 "/32m.json", "/counted", "/exchange", "/stream"}) {
    ::unlink((folder + name).c_str());
  }
  ::rmdir(folder.c_str());
  return 0;
}
