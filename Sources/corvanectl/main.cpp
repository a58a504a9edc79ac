#include <cstddef>

#include "CorvaneControl/Platform/System.h"
#include "Driver.h"

int main(int count, char** words) {
  CorvaneControl::System::protectConstants();
  // Nothing may take the place of one; the driver sees when the socket did.
  CorvaneControl::System::occupyStandardDescriptors();
  const auto given = static_cast<std::size_t>(count);
  drive({words + (given > 0 ? 1 : 0), words + given});
}
