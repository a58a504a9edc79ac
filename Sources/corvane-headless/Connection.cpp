#include "corvane-headless/Connection.h"

#include <array>
#include <cerrno>

#include <unistd.h>

#include "CorvaneControl/Platform/System.h"

namespace CorvaneControl::Headless {

Connection::Connection(int socket) : socket_(socket) {
  System::disableBrokenPipeSignal(socket_);
  if (!UnixSocket::makeNonBlocking(socket_)) giveUp();  // rather than wait for it
}

Connection::~Connection() { ::close(socket_); }

void Connection::receive() {
  static std::array<char, 65536> chunk;
  const ssize_t count = ::read(socket_, chunk.data(), chunk.size());
  if (count > 0) {
    // Memory that a huge request took is not kept for the small ones that follow.
    if (input_.count() == 0) input_.reset();
    input_.append({chunk.data(), static_cast<std::size_t>(count)});
  } else if (count == 0) {
    inputEnded_ = true;
    probe();
  } else if (errno != EAGAIN && errno != EWOULDBLOCK && errno != EINTR) {
    inputEnded_ = true;
    gone_ = true;
  }
}

std::optional<std::string_view> Connection::nextLine() { return input_.nextLine(); }

void Connection::transmit() {
  if (gone_) output_.clear();
  if (output_.writeToSocket(socket_) != OutputQueue::Outcome::failed) return;
  if (errno != EPIPE && errno != ECONNRESET) {
    giveUp();  // it would wait for an answer that never comes
    return;
  }
  gone_ = true;  // and may have sent requests before
  output_.clear();
}

void Connection::probe() {
  // Nothing is sent, but a socket without another end says so.
  if (System::write(socket_, "", 0) < 0 && errno != EAGAIN && errno != EINTR) gone_ = true;
}

void Connection::stopReceiving() {
  inputEnded_ = true;
  hasMoreLines = false;
  input_.reset();
}

void Connection::giveUp() {
  stopReceiving();
  gone_ = true;
  output_.clear();
}

}  // namespace CorvaneControl::Headless
