#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

/// Tells from a Codex session's transcript (JSON lines, possibly very long) whether its approvals
/// are reviewed automatically. The file is read from the end, a window at a time, never whole; it
/// may be appended to meanwhile. Whatever goes wrong, the answer is no: the user then decides.
namespace CorvaneControl::CodexTranscript {

/// What a line that records the settings of a turn contains.
inline constexpr std::string_view marker = R"("type":"turn_context")";

/// Whether the last settings in the transcript have approvals reviewed automatically. Anything but
/// a regular file is refused without waiting for it.
bool autoReviewed(const std::string& path);

/// The last line of the file that records the settings of a turn. Windows of `chunk` bytes are read
/// from the end; none is begun once `limit` bytes have been read.
std::optional<std::string> lastTurnContext(const std::string& path, std::uint64_t chunk,
                                           std::uint64_t limit);

/// The whole line around byte `offset` of an open file. Absent when the line begins more than 160
/// bytes before `offset` (the line feed before it included), when it has more than 1,048,575 bytes,
/// and at a read error.
std::optional<std::string> line(std::uint64_t offset, int file);

/// Whether the settings in that line have approvals reviewed automatically.
bool autoReviewedIn(std::string turnContext);

}  // namespace CorvaneControl::CodexTranscript
