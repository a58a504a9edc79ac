#include "CorvaneControl/CodexTranscript.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <optional>
#include <string>
#include <string_view>

#include "CorvaneControl/JSON.h"
#include "Fuzz/Input.h"
#include "Support/TemporaryFile.h"

using CorvaneTests::require;
namespace CodexTranscript = CorvaneControl::CodexTranscript;
namespace JSON = CorvaneControl::JSON;

namespace {

/// Where the line around `hit` begins; absent when that is too far back.
std::optional<std::size_t> lineStart(std::string_view text, std::size_t hit) {
  const std::size_t feed = text.substr(0, hit).rfind('\n');
  if (feed == std::string_view::npos) {
    return hit <= 160 ? std::optional<std::size_t>(0) : std::nullopt;
  }
  return hit - feed <= 160 ? std::optional(feed + 1) : std::nullopt;
}

bool isReviewed(const JSON::Value& record) {
  const JSON::Value* const payload = record.object("payload");
  if (!payload) return false;
  const auto reviewer = payload->string("approvals_reviewer");
  const auto policy = payload->string("approval_policy");
  const JSON::Value* const policies = payload->object("approval_policy");
  return (reviewer == "auto_review" || reviewer == "guardian_subagent") &&
         (policy == "on-request" || policy == "on-failure" ||
          (policies && policies->find("granular") != nullptr));
}

/// The same search over the whole text in memory, as simply as it can be put.
bool isReviewed(std::string_view text) {
  std::size_t end = text.size();
  for (;;) {
    const std::size_t hit = text.substr(0, end).rfind(CodexTranscript::marker);
    if (hit == std::string_view::npos) return false;
    end = hit + CodexTranscript::marker.size() - 1;
    const auto start = lineStart(text, hit);
    if (!start) continue;
    std::string line(text.substr(*start, text.find('\n', *start) - *start));
    if (line.size() > 1'048'575) continue;
    const auto document = JSON::Document::parse(line);
    if (document && document->root().string("type") == "turn_context") {
      return isReviewed(document->root());
    }
  }
}

}  // namespace

/// Any file tells the same through windows of any size as it does in memory. The first byte is the
/// size of the window.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  if (size == 0) return 0;
  static const CorvaneTests::TemporaryFile file;
  const CorvaneTests::Input input(data + 1, size - 1);
  file.hold(input.text());
  const std::uint64_t window = data[0];
  const bool reviewed = CodexTranscript::autoReviewed(file.path(), {.window = window});
  require(reviewed == (window > 0 && isReviewed(input.text())));
  require(CodexTranscript::autoReviewed(file.path()) == isReviewed(input.text()));
  return 0;
}
