#include "CorvaneControl/CodexTranscript.h"

#include <algorithm>
#include <cstddef>
#include <cstring>
#include <memory>
#include <optional>
#include <utility>
#include <vector>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include "CorvaneControl/JSON.h"
#include "CorvaneControl/Transfer.h"

namespace CorvaneControl::CodexTranscript {
namespace {

constexpr std::size_t lookBackBytes = 160;  ///< Within these a record of a turn names its type.
constexpr std::size_t pieceBytes = 65'536;
constexpr std::size_t longestLine = 1'048'575;  ///< Bytes, without the line feed.

/// What two windows share, so that no marker is lost between them.
constexpr std::size_t overlapBytes = marker.size() - 1;

/// A file open for reading; closed at the end.
class File {
 public:
  /// A FIFO without a writer must not be waited for, hence the non-blocking mode. A path with a NUL
  /// would name another file to the system than to everybody else.
  explicit File(const std::string& path)
      : descriptor_(path.find('\0') == std::string::npos
                        ? open(path.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC | O_NOCTTY)
                        : -1) {}
  ~File() {
    if (descriptor_ >= 0) close(descriptor_);
  }
  File(const File&) = delete;
  File& operator=(const File&) = delete;

  int descriptor() const { return descriptor_; }

  /// The size of a regular file in bytes; absent for everything else.
  std::optional<std::uint64_t> size() const {
    struct stat status {};
    if (descriptor_ < 0 || fstat(descriptor_, &status) != 0) return std::nullopt;
    if (!S_ISREG(status.st_mode) || status.st_size < 0) return std::nullopt;
    return static_cast<std::uint64_t>(status.st_size);
  }

 private:
  int descriptor_;
};

/// A stretch of the file in memory.
struct Window {
  std::uint64_t begin = 0;  ///< Where its first byte stands in the file.
  std::string_view bytes{};
};

/// Reads `count` bytes that stand at `offset`; fewer only where the file ends. Absent at an error.
std::optional<std::size_t> readAt(int file, std::uint64_t offset, char* bytes, std::size_t count) {
  const ssize_t done = Transfer::readAll(bytes, count, [&](char* next, std::size_t most) {
    const ssize_t now = pread(file, next, most, static_cast<off_t>(offset));
    if (now > 0) offset += static_cast<std::uint64_t>(now);
    return now;
  });
  if (done < 0) return std::nullopt;
  return static_cast<std::size_t>(done);
}

/// Where the line around `offset` begins, told from what stands `before` it; absent when it begins
/// farther back than that.
std::optional<std::uint64_t> lineStart(std::uint64_t offset, std::string_view before) {
  const std::size_t lineFeed = before.rfind('\n');
  if (lineFeed != std::string_view::npos) return offset - before.size() + lineFeed + 1;
  if (before.size() == offset) return 0;
  return std::nullopt;
}

std::size_t lookBack(std::uint64_t offset) {
  return static_cast<std::size_t>(std::min<std::uint64_t>(offset, lookBackBytes));
}

std::optional<std::uint64_t> lineStart(std::uint64_t offset, int file) {
  char before[lookBackBytes];
  const std::size_t count = lookBack(offset);
  if (readAt(file, offset - count, before, count) != count) return std::nullopt;
  return lineStart(offset, std::string_view(before, count));
}

/// The line that begins at `start`; absent when it is too long.
std::optional<std::string> lineFrom(std::uint64_t start, int file) {
  std::string line;
  while (line.size() <= longestLine) {
    const std::size_t known = line.size();
    line.resize(known + pieceBytes);
    const auto count = readAt(file, start + known, line.data() + known, pieceBytes);
    if (!count) return std::nullopt;
    line.resize(known + *count);
    const std::size_t lineFeed = line.find('\n', known);
    if (lineFeed != std::string::npos) {
      line.resize(lineFeed);
      return line;
    }
    if (*count < pieceBytes && line.size() <= longestLine) return line;
  }
  return std::nullopt;
}

/// The line around a marker at `index` in the window; absent when its beginning is too far back, or
/// when it is too long. What is in memory is not read again: in a file
/// full of markers that would cost a piece for each of them.
std::optional<std::string> lineAround(std::size_t index, const Window& window, int file) {
  const std::uint64_t offset = window.begin + index;
  const std::size_t back = lookBack(offset);
  const auto start = index >= back ? lineStart(offset, window.bytes.substr(index - back, back))
                                   : lineStart(offset, file);
  if (!start) return std::nullopt;
  if (*start >= window.begin) {
    const std::string_view rest =
        window.bytes.substr(static_cast<std::size_t>(*start - window.begin));
    const std::size_t length = rest.find('\n');
    if (length <= longestLine) return std::string(rest.substr(0, length));  // npos is beyond it
  }
  return lineFrom(*start, file);
}

/// The index of the first marker in each line of `bytes`. The others of a line need no look: they
/// stand in the same line, only farther from its beginning.
std::vector<std::size_t> markers(std::string_view bytes) {
  std::vector<std::size_t> found;
  std::size_t from = 0;
  while (from < bytes.size()) {
    const void* hit =
        memmem(bytes.data() + from, bytes.size() - from, marker.data(), marker.size());
    if (hit == nullptr) break;
    const auto index = static_cast<std::size_t>(static_cast<const char*>(hit) - bytes.data());
    found.push_back(index);
    from = bytes.find('\n', index);  // npos ends the loop
  }
  return found;
}

bool hasAutomaticReviewer(const JSON::Value& record) {
  const JSON::Value* payload = record.object("payload");
  if (payload == nullptr) return false;
  const auto reviewer = payload->string("approvals_reviewer");
  if (reviewer != "auto_review" && reviewer != "guardian_subagent") return false;
  if (const auto policy = payload->string("approval_policy")) {
    return policy == "on-request" || policy == "on-failure";
  }
  const JSON::Value* policy = payload->object("approval_policy");
  return policy != nullptr && policy->find("granular") != nullptr;
}

/// What the settings in a line say; absent when it holds none, but the marker inside something
/// else.
std::optional<bool> settingsIn(std::string line) {
  const auto record = JSON::Document::parse(line);
  if (!record || record->root().string("type") != "turn_context") return std::nullopt;
  return hasAutomaticReviewer(record->root());
}

/// What the last settings in the window say.
std::optional<bool> lastSettings(const Window& window, int file) {
  const std::vector<std::size_t> hits = markers(window.bytes);
  for (auto hit = hits.rbegin(); hit != hits.rend(); ++hit) {
    auto line = lineAround(*hit, window, file);
    if (!line) continue;
    if (const auto settings = settingsIn(std::move(*line))) return settings;
  }
  return std::nullopt;
}

}  // namespace

bool autoReviewed(const std::string& path, const Reach& reach) {
  const File file(path);
  const auto size = file.size();
  if (!size || reach.window == 0) return false;

  const auto capacity = static_cast<std::size_t>(std::min(reach.window, *size));
  const auto buffer = std::make_unique_for_overwrite<char[]>(capacity + overlapBytes);
  std::size_t kept = 0;  // the first bytes of the window before, now at the end of this one
  std::uint64_t end = *size;
  std::uint64_t bytesRead = 0;
  while (end > 0 && bytesRead < reach.mostInAll) {
    const auto length = static_cast<std::size_t>(std::min<std::uint64_t>(capacity, end));
    std::memmove(buffer.get() + length, buffer.get(), kept);
    const auto count = readAt(file.descriptor(), end - length, buffer.get(), length);
    if (!count) return false;
    // When the file was cut short meanwhile, what was kept no longer follows.
    const std::size_t usable = *count == length ? length + kept : *count;
    const Window window{end - length, std::string_view(buffer.get(), usable)};
    if (const auto settings = lastSettings(window, file.descriptor())) return *settings;
    kept = std::min(usable, overlapBytes);
    end -= length;
    bytesRead += length;
  }
  return false;
}

}  // namespace CorvaneControl::CodexTranscript
