// Does one piece of work at several sizes, for a tool that counts what it costs.

#include <cstddef>
#include <cstdlib>
#include <functional>
#include <string_view>

#include "Cost/Work.h"

/// What is counted: the work alone, without what prepares it. By this name the tool knows it.
extern "C" [[gnu::noinline]] void countedWork(const std::function<void()>& task);
void countedWork(const std::function<void()>& task) { task(); }

/// Arguments: the name of the work, then sizes in bytes. Ends with 1 when no work has that name.
int main(int count, char** arguments) {
  for (const auto& work : CorvaneTests::allWork()) {
    if (count < 2 || std::string_view(work.name) != arguments[1]) continue;
    work.prepare(1024)();  // what is done once in a process is done
    for (int size = 2; size < count; ++size) {
      countedWork(work.prepare(static_cast<std::size_t>(std::atol(arguments[size]))));
    }
    return 0;
  }
  return 1;
}
