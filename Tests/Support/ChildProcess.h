#pragma once

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstddef>
#include <cstdlib>
#include <functional>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include <fcntl.h>
#include <poll.h>
#include <sys/types.h>
#include <sys/wait.h>
#include <unistd.h>

extern char** environ;

namespace CorvaneTests {

/// How long anything that a test waits for may take before the test fails. Generous: a machine may
/// be busy, and the sanitizers are slow. CORVANE_TEST_PATIENCE (in seconds) stretches it for
/// programs that run on an emulated processor.
inline const std::chrono::seconds patience = [] {
  const char* const stretched = std::getenv("CORVANE_TEST_PATIENCE");
  return std::chrono::seconds(stretched ? std::atoi(stretched) : 60);
}();

/// Whether a child that a test leaves behind is asked to end before it is killed: what is counted
/// of a program that is killed is lost (Scripts/coverage).
inline const bool endsGently = std::getenv("CORVANE_TEST_ENDS_GENTLY") != nullptr;

/// Real programs, run with what a test lends them; what they print is kept.
///
///     const auto ended = run(CORVANECTL, {.arguments = {"list"},
///                                         .environment = {{"CORVANE_SOCKET", socket}}});
///     EXPECT_EQ(ended.status, 3);
///     EXPECT_EQ(ended.errors, "Corvane isn't running, or is too old for corvanectl.\n");
struct ChildOptions {
  std::vector<std::string> arguments{};              ///< Without the program itself.
  std::map<std::string, std::string> environment{};  ///< Added to this process's own, or instead.
  std::set<std::string> withoutEnvironment{};        ///< Taken out of it.
  /// What comes on standard input before its end; absent: the null device.
  std::optional<std::string> input{};
  bool keepInputOpen = false;           ///< A pipe for `write`, until `closeInput`.
  std::set<int> closed{};               ///< Of 0, 1 and 2: closed when the program starts.
  std::map<int, int> given{};           ///< The child's descriptor: the one of ours it starts with.
  std::optional<std::string> folder{};  ///< The current folder to start in.
  std::function<void()> beforeExec{};   ///< In the child; only what is safe after a fork.
};

/// How a program ended, and what it printed.
struct Ended {
  std::optional<int> status{};  ///< What it returned; absent when a signal ended it.
  std::optional<int> signal{};
  std::string output{};
  std::string errors{};
};

class ChildProcess {
 public:
  explicit ChildProcess(const std::string& program, ChildOptions options = {}) {
    // A child that no longer reads must not end the test program.
    std::signal(SIGPIPE, SIG_IGN);
    toWrite_ = options.input.value_or("");
    keepsInputOpen_ = options.keepInputOpen;
    start(program, options);
    pump(std::chrono::milliseconds(0));  // a short input is there from the beginning
  }
  /// A child that is still there is killed.
  ~ChildProcess() {
    if (!ended_ && endsGently) askToEnd();
    if (!ended_) {
      ::kill(pid_, SIGKILL);
      reap();
    }
    for (int* end : {&input_, &output_.descriptor, &errors_.descriptor}) closeEnd(*end);
  }
  ChildProcess(const ChildProcess&) = delete;
  ChildProcess& operator=(const ChildProcess&) = delete;

  pid_t pid() const { return pid_; }
  void signal(int number) const { ::kill(pid_, number); }

  /// Adds to what comes on standard input; needs `keepInputOpen`.
  void write(std::string_view text) {
    toWrite_ += text;
    pump(std::chrono::milliseconds(0));
  }
  void closeInput() { keepsInputOpen_ = false; }
  /// Lets go of the child's standard output, so that its writing fails.
  void closeOutput() { closeEnd(output_.descriptor); }

  /// What it has printed so far, as far as it was waited for.
  const std::string& output() const { return output_.text; }
  const std::string& errors() const { return errors_.text; }

  /// Waits until its standard output holds `text`, from the byte `from` on; fails the test and says
  /// false when that does not happen.
  bool waitForOutput(std::string_view text, std::size_t from = 0) {
    return waitFor([&] { return output_.text.find(text, from) != std::string::npos; }, text);
  }
  bool waitForErrors(std::string_view text) {
    return waitFor([&] { return errors_.text.find(text) != std::string::npos; }, text);
  }

  /// Waits for the end; a child that does not end is killed, and fails the test.
  Ended wait(std::chrono::milliseconds limit = patience) {
    const auto deadline = std::chrono::steady_clock::now() + limit;
    while (!finished()) {
      if (std::chrono::steady_clock::now() >= deadline) {
        ADD_FAILURE() << "still running after " << limit.count() << " ms; it printed:\n"
                      << output_.text << errors_.text;
        ::kill(pid_, SIGKILL);
        reap();
        break;
      }
      pump(std::chrono::milliseconds(20));
    }
    // Its own descendants may hold the pipes open: what is there now is what counts.
    pump(std::chrono::milliseconds(0));
    Ended result{.status = {}, .signal = {}, .output = output_.text, .errors = errors_.text};
    if (WIFEXITED(waitStatus_)) result.status = WEXITSTATUS(waitStatus_);
    if (WIFSIGNALED(waitStatus_)) result.signal = WTERMSIG(waitStatus_);
    return result;
  }

  /// Whether it is still running; also takes in what it has printed.
  bool running() {
    pump(std::chrono::milliseconds(0));
    return !finished();
  }

 private:
  struct Captured {
    int descriptor = -1;
    std::string text{};
  };

  static void closeEnd(int& descriptor) {
    if (descriptor >= 0) ::close(std::exchange(descriptor, -1));
  }
  static std::array<int, 2> makePipe() {
    std::array<int, 2> ends{};
    if (::pipe(ends.data()) != 0) {
      ADD_FAILURE() << "pipe failed";
      std::abort();
    }
    for (int& end : ends) {
      // Beyond the standard descriptors, which are arranged by number in the child.
      const int moved = ::fcntl(end, F_DUPFD_CLOEXEC, 10);
      ::close(std::exchange(end, moved));
    }
    return ends;
  }
  static std::vector<std::string> environmentOf(const ChildOptions& options) {
    std::vector<std::string> entries;
    for (char** entry = environ; *entry != nullptr; ++entry) {
      const std::string name(*entry, std::string_view(*entry).find('='));
      if (!options.environment.contains(name) && !options.withoutEnvironment.contains(name)) {
        entries.emplace_back(*entry);
      }
    }
    for (const auto& [name, value] : options.environment) entries.push_back(name + "=" + value);
    return entries;
  }
  static std::vector<char*> pointers(std::vector<std::string>& texts) {
    std::vector<char*> result;
    for (std::string& text : texts) result.push_back(text.data());
    result.push_back(nullptr);
    return result;
  }

  void start(const std::string& program, ChildOptions& options) {
    std::vector<std::string> words{program};
    words.insert(words.end(), options.arguments.begin(), options.arguments.end());
    std::vector<std::string> entries = environmentOf(options);
    const std::vector<char*> argumentPointers = pointers(words);
    const std::vector<char*> environmentPointers = pointers(entries);

    const bool hasInput = options.input.has_value() || options.keepInputOpen;
    const std::array<int, 2> in = makePipe();
    const std::array<int, 2> out = makePipe();
    const std::array<int, 2> err = makePipe();
    const int null = ::open("/dev/null", O_RDONLY | O_CLOEXEC);

    pid_ = ::fork();
    if (pid_ == 0) {
      ::dup2(hasInput ? in[0] : null, 0);
      ::dup2(out[1], 1);
      ::dup2(err[1], 2);
      for (const auto& [theirs, ours] : options.given) ::dup2(ours, theirs);
      for (const int descriptor : options.closed) ::close(descriptor);
      std::signal(SIGPIPE, SIG_DFL);
      if (options.folder && ::chdir(options.folder->c_str()) != 0) ::_exit(126);
      if (options.beforeExec) options.beforeExec();
      ::execve(program.c_str(), argumentPointers.data(), environmentPointers.data());
      ::_exit(127);
    }
    if (null >= 0) ::close(null);
    for (const int end : {in[0], out[1], err[1]}) ::close(end);
    input_ = in[1];
    output_.descriptor = out[0];
    errors_.descriptor = err[0];
    for (const int end : {input_, output_.descriptor, errors_.descriptor}) {
      ::fcntl(end, F_SETFL, ::fcntl(end, F_GETFL) | O_NONBLOCK);
    }
    if (!hasInput) closeEnd(input_);
    ASSERT_GT(pid_, 0) << "fork failed";
  }

  void askToEnd() {
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(2);
    ::kill(pid_, SIGTERM);
    while (!finished() && std::chrono::steady_clock::now() < deadline) {
      pump(std::chrono::milliseconds(10));
    }
  }
  void reap() {
    while (::waitpid(pid_, &waitStatus_, 0) < 0 && errno == EINTR) {
    }
    ended_ = true;
  }
  bool finished() {
    if (!ended_ && ::waitpid(pid_, &waitStatus_, WNOHANG) == pid_) ended_ = true;
    return ended_;
  }

  template <class Condition>
  bool waitFor(Condition holds, std::string_view what) {
    const auto deadline = std::chrono::steady_clock::now() + patience;
    while (!holds()) {
      const bool over = finished();
      pump(std::chrono::milliseconds(over ? 0 : 20));
      if (holds()) break;
      if (over || std::chrono::steady_clock::now() >= deadline) {
        ADD_FAILURE() << (over ? "ended" : "still running") << " without printing \"" << what
                      << "\"; it printed:\n"
                      << output_.text << errors_.text;
        return false;
      }
    }
    return true;
  }

  /// Moves what can be moved between the pipes and memory, waiting at most `limit` for the first.
  void pump(std::chrono::milliseconds limit) {
    for (auto wait = limit;; wait = std::chrono::milliseconds(0)) {
      if (toWrite_.empty() && !keepsInputOpen_) closeEnd(input_);
      std::array<pollfd, 3> polled{
          pollfd{.fd = toWrite_.empty() ? -1 : input_, .events = POLLOUT, .revents = 0},
          pollfd{.fd = output_.descriptor, .events = POLLIN, .revents = 0},
          pollfd{.fd = errors_.descriptor, .events = POLLIN, .revents = 0}};
      if (::poll(polled.data(), polled.size(), static_cast<int>(wait.count())) <= 0) return;
      if (polled[0].revents != 0) feed();
      if (polled[1].revents != 0) take(output_);
      if (polled[2].revents != 0) take(errors_);
    }
  }
  void feed() {
    const ssize_t count =
        ::write(input_, toWrite_.data(), std::min<std::size_t>(toWrite_.size(), 65536));
    if (count > 0) {
      toWrite_.erase(0, static_cast<std::size_t>(count));
    } else if (errno != EAGAIN && errno != EINTR) {
      toWrite_.clear();  // the child no longer reads, which is its good right
      closeEnd(input_);
    }
  }
  static void take(Captured& captured) {
    std::array<char, 65536> chunk;
    const ssize_t count = ::read(captured.descriptor, chunk.data(), chunk.size());
    if (count > 0) {
      captured.text.append(chunk.data(), static_cast<std::size_t>(count));
    } else if (count == 0 || (errno != EAGAIN && errno != EINTR)) {
      closeEnd(captured.descriptor);
    }
  }

  pid_t pid_ = -1;
  bool ended_ = false;
  int waitStatus_ = 0;
  int input_ = -1;
  std::string toWrite_{};
  bool keepsInputOpen_ = false;
  Captured output_{};
  Captured errors_{};
};

/// Runs a program to its end.
inline Ended run(const std::string& program, ChildOptions options = {}) {
  ChildProcess child(program, std::move(options));
  return child.wait();
}

}  // namespace CorvaneTests
