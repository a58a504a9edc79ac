#pragma once

#include <optional>

#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <unistd.h>

#ifdef __linux__
#include <sys/syscall.h>
#endif

/// What tests have to know of the system that they run on: the one place that asks which it is.
namespace CorvaneTests {

/// A device on which every write fails; null where the system has none.
#ifdef __linux__
inline constexpr const char* fullDevice = "/dev/full";
#else
inline constexpr const char* fullDevice = nullptr;
#endif

/// Whether applications keep their data in "~/Library/Application Support" only.
#ifdef __APPLE__
inline constexpr bool hasLibraryFolder = true;
#else
inline constexpr bool hasLibraryFolder = false;
#endif

/// Whether a program under test can be made to run out of memory: the sanitizers need all they can
/// get.
#if defined(__linux__) && !defined(__SANITIZE_ADDRESS__)
inline constexpr bool canBoundMemory = true;
#else
inline constexpr bool canBoundMemory = false;
#endif

/// The read time-out, in seconds, of the lowest descriptor that another process opened; absent
/// where the system does not let one look.
inline std::optional<long> readTimeout(pid_t process) {
#ifdef __linux__
  const auto handle = static_cast<int>(::syscall(SYS_pidfd_open, process, 0));
  if (handle < 0) return std::nullopt;
  const auto socket = static_cast<int>(::syscall(SYS_pidfd_getfd, handle, 3, 0));
  ::close(handle);
  if (socket < 0) return std::nullopt;
  timeval value{};
  socklen_t size = sizeof value;
  const bool known = ::getsockopt(socket, SOL_SOCKET, SO_RCVTIMEO, &value, &size) == 0;
  ::close(socket);
  if (known) return static_cast<long>(value.tv_sec);
#else
  static_cast<void>(process);
#endif
  return std::nullopt;
}

}  // namespace CorvaneTests
