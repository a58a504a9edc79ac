#include "corvane-headless/EndSignals.h"

#include <cerrno>
#include <csignal>

#include <fcntl.h>
#include <unistd.h>

#include "CorvaneControl/UnixSocket.h"

namespace CorvaneControl::Headless {

namespace {

volatile std::sig_atomic_t writeEnd = -1;

void tell(int /*signal*/) {
  const int code = errno;
  // A pipe that is full says already what there is to say; any other failure does not last.
  for (int attempt = 0; attempt < 3 && ::write(writeEnd, "", 1) < 0; ++attempt) {
  }
  errno = code;
}

void handle(int signal, void (*handler)(int)) {
  struct sigaction action {};
  action.sa_handler = handler;
  action.sa_flags = SA_RESTART;
  ::sigaction(signal, &action, nullptr);
}

bool isIgnored(int signal) {
  struct sigaction action {};
  return ::sigaction(signal, nullptr, &action) == 0 && action.sa_handler == SIG_IGN;
}

}  // namespace

EndSignals::EndSignals() {
  if (::pipe(ends_) != 0) {
    ends_[0] = ends_[1] = -1;
    return;
  }
  for (const int end : ends_) {
    ::fcntl(end, F_SETFD, FD_CLOEXEC);
    // A handler that waits for room would wait for ever.
    if (!UnixSocket::makeNonBlocking(end)) ends_[0] = -1;
  }
  if (!isUsable()) return;
  writeEnd = ends_[1];
  // A shell lets jobs in the background ignore SIGINT; who sends it to this one means it.
  handle(SIGINT, tell);
  handle(SIGTERM, tell);
  if (!isIgnored(SIGHUP)) handle(SIGHUP, tell);  // nohup(1) says that it is to go on
  handle(SIGPIPE, SIG_IGN);
  // A job in the background must not be stopped for using the terminal: its clients would hang.
  handle(SIGTTIN, SIG_IGN);
  handle(SIGTTOU, SIG_IGN);
}

}  // namespace CorvaneControl::Headless
