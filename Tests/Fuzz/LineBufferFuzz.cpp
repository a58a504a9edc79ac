#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

#include "CorvaneControl/UnixSocket.h"
#include "Fuzz/Input.h"

using CorvaneControl::LineBuffer;
using CorvaneTests::require;

namespace {

/// A buffer, and what has to come out of it.
class Framing {
 public:
  /// What is appended lies in memory of its own, as what is read from a socket does.
  void append(std::string_view piece) {
    appended_ += piece;
    const std::string other(piece);
    buffer_.append(other);
    require(buffer_.count() == appended_.size() - taken_);
  }

  /// Whether there was a line.
  bool takeLine() {
    const auto line = buffer_.nextLine();
    const std::size_t end = appended_.find('\n', taken_);
    require(line.has_value() == (end != std::string::npos));
    if (!line) return false;
    require(*line == rest().substr(0, end - taken_));
    const auto place = buffer_.inPlace(*line);
    require(place.data() == line->data() && place.size() == line->size());
    std::ranges::fill(place, '\n');  // who owns the line may write there, and nothing sees it
    taken_ = end + 1;
    require(buffer_.count() == appended_.size() - taken_);
    return true;
  }

  void takeLines() {
    const std::size_t end = appended_.rfind('\n') + 1;  // 0 without one
    const std::string_view whole =
        end > taken_ ? rest().substr(0, end - taken_) : std::string_view();
    require(buffer_.nextLines() == whole);
    taken_ += whole.size();
    require(buffer_.count() == appended_.size() - taken_);
  }

 private:
  std::string_view rest() const { return std::string_view(appended_).substr(taken_); }

  LineBuffer buffer_{};
  std::string appended_{};
  std::size_t taken_ = 0;
};

}  // namespace

/// However a stream is cut into pieces and in whichever way its lines are taken, what comes out is
/// what stands between its line feeds. A byte says how long the next piece is (its low six bits)
/// and what is taken then: nothing, a line, every line one by one, all lines at once.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const CorvaneTests::Input input(data, size);
  std::string_view rest = input.text();
  Framing framing;
  while (!rest.empty()) {
    const auto step = static_cast<std::uint8_t>(rest.front());
    rest.remove_prefix(1);
    const std::string_view piece = rest.substr(0, step & 0x3FU);
    rest.remove_prefix(piece.size());
    framing.append(piece);
    const unsigned what = step >> 6U;
    if (what == 1) framing.takeLine();
    while (what == 2 && framing.takeLine()) {
    }
    if (what == 3) framing.takeLines();
  }
  return 0;
}
