#pragma once

#include <cstdint>
#include <string>
#include <string_view>

/// Tells from a Codex session's transcript (JSON lines, possibly very long) whether its approvals
/// are reviewed automatically. The file is read from the end, a window at a time, never whole; it
/// may be appended to meanwhile. Whatever goes wrong, the answer is no: the user then decides.
namespace CorvaneControl::CodexTranscript {

/// What a line that records the settings of a turn contains.
inline constexpr std::string_view marker = R"("type":"turn_context")";

/// How much of a file is read, in bytes.
struct Reach {
  std::uint64_t window = 262'144;        ///< Read at a time.
  std::uint64_t mostInAll = 67'108'864;  ///< Once as much has been read, no window is begun.
};

/// Whether the last settings in the transcript have approvals reviewed automatically. Anything but
/// a regular file is refused without waiting for it. A line counts only when it has at most
/// 1,048,575 bytes and its marker begins at most 159 bytes into it (160 in the file's first line).
bool autoReviewed(const std::string& path, const Reach& reach = {});

}  // namespace CorvaneControl::CodexTranscript
