#include <cerrno>
#include <cstddef>

#include <fcntl.h>
#include <unistd.h>

#include "Driver.h"

namespace {

/// Occupies the standard descriptors that are closed, so that the socket never takes the place of
/// one and a reply never goes to the application.
void occupyStandardDescriptors() {
  for (int descriptor = STDIN_FILENO; descriptor <= STDERR_FILENO; ++descriptor) {
    if (::fcntl(descriptor, F_GETFD) == -1 && errno == EBADF) {
      ::open("/dev/null", O_RDWR);  // takes the lowest number that is free: this one
    }
  }
}

}  // namespace

int main(int count, char** words) {
  occupyStandardDescriptors();
  const auto given = static_cast<std::size_t>(count);
  drive({words + (given > 0 ? 1 : 0), words + given});
}
