#pragma once

#include <array>
#include <cerrno>
#include <cstddef>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <optional>
#include <string>
#include <string_view>

#include <fcntl.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <unistd.h>

#ifdef __linux__
#include <linux/filter.h>
#include <linux/seccomp.h>
#include <sys/prctl.h>
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

/// What the C library of the programs under test says of an error. They are linked with this
/// program's, unless CORVANE_TESTED_C_LIBRARY says otherwise; `musl` is what musl says.
inline std::string errorText(int code, const char* musl) {
  const char* const other = std::getenv("CORVANE_TESTED_C_LIBRARY");
  return other && std::string_view(other) == "musl" ? musl : std::strerror(code);
}

/// Of too many symbolic links.
inline std::string linkLoopText() { return errorText(ELOOP, "Symbolic link loop"); }
/// Of a socket of another type.
inline std::string wrongSocketText() {
  return errorText(EPROTOTYPE, "Protocol wrong type for socket");
}
/// Of a file or device that is broken.
inline std::string brokenText() { return errorText(EIO, "I/O error"); }

/// From now on this process, and what it becomes, can open files for reading only, and no folders
/// (nor the null device as a standard descriptor): false where the system has no such bound. Safe
/// after a fork.
inline bool refuseOpening() {
#if defined(__linux__) && defined(SYS_open)
  constexpr auto word = [](std::size_t argument) {
    return static_cast<unsigned>(offsetof(seccomp_data, args) + 8 * argument);  // its lower half
  };
  // The flags are the second argument of open(2), the third of openat(2).
  std::array<sock_filter, 9> rules = {{
      BPF_STMT(BPF_LD | BPF_W | BPF_ABS, offsetof(seccomp_data, nr)),
      BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, SYS_openat, 3, 0),
      BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, SYS_open, 0, 5),
      BPF_STMT(BPF_LD | BPF_W | BPF_ABS, word(1)),
      BPF_JUMP(BPF_JMP | BPF_JA, 1, 0, 0),
      BPF_STMT(BPF_LD | BPF_W | BPF_ABS, word(2)),
      BPF_JUMP(BPF_JMP | BPF_JSET | BPF_K, O_RDWR | O_DIRECTORY, 0, 1),
      BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ERRNO | EACCES),
      BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ALLOW),
  }};
  const sock_fprog program = {static_cast<unsigned short>(rules.size()), rules.data()};
  return ::prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0) == 0 &&
         ::prctl(PR_SET_SECCOMP, SECCOMP_MODE_FILTER, &program) == 0;
#else
  return false;
#endif
}

/// From now on this process, and what it becomes, can make no file longer. Safe after a fork.
inline void refuseFileGrowth() {
  const rlimit limit{.rlim_cur = 0, .rlim_max = 0};
  ::setrlimit(RLIMIT_FSIZE, &limit);
}

/// Makes a running process unable to wait for more than `most` descriptors at once; false where the
/// system has no such bound.
inline bool boundPolling(pid_t process, rlim_t most) {
#ifdef __linux__
  const rlimit limit{.rlim_cur = most, .rlim_max = most};
  return ::prlimit(process, RLIMIT_NOFILE, &limit, nullptr) == 0;
#else
  static_cast<void>(process);
  static_cast<void>(most);
  return false;
#endif
}

/// The permissions that a running process takes from the files it makes, as the system writes them
/// ("0077"); empty where it does not say.
inline std::string fileCreationMask(pid_t process) {
  std::ifstream status("/proc/" + std::to_string(process) + "/status");
  const std::string key = "Umask:\t";
  for (std::string line; std::getline(status, line);) {
    if (line.starts_with(key)) return line.substr(key.size());
  }
  return {};
}

/// The read time-out, in seconds, of another process's socket, told from those that it inherited by
/// its write time-out; absent where the system does not let one look.
inline std::optional<long> readTimeout(pid_t process, long writeTimeout) {
#ifdef __linux__
  const auto handle = static_cast<int>(::syscall(SYS_pidfd_open, process, 0));
  if (handle < 0) return std::nullopt;
  std::optional<long> found;
  for (int number = 3; number < 64 && !found; ++number) {
    const auto socket = static_cast<int>(::syscall(SYS_pidfd_getfd, handle, number, 0));
    if (socket < 0) continue;
    timeval read{};
    timeval write{};
    socklen_t size = sizeof read;
    if (::getsockopt(socket, SOL_SOCKET, SO_RCVTIMEO, &read, &size) == 0 &&
        ::getsockopt(socket, SOL_SOCKET, SO_SNDTIMEO, &write, &size) == 0 &&
        write.tv_sec == writeTimeout) {
      found = read.tv_sec;
    }
    ::close(socket);
  }
  ::close(handle);
  return found;
#else
  static_cast<void>(process);
  static_cast<void>(writeTimeout);
  return std::nullopt;
#endif
}

}  // namespace CorvaneTests
