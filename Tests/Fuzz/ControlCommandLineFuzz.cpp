#include "CorvaneControl/ControlCommandLine.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

#include "CorvaneControl/Agent.h"
#include "CorvaneControl/ControlProtocol.h"
#include "CorvaneControl/JSON.h"
#include "CorvaneControl/Platform/Text.h"
#include "Fuzz/Input.h"

using CorvaneControl::ControlRequest;
using CorvaneTests::require;
namespace CommandLine = CorvaneControl::ControlCommandLine;
namespace ControlCoding = CorvaneControl::ControlCoding;
namespace JSON = CorvaneControl::JSON;
namespace Text = CorvaneControl::Text;

namespace {

using Command = ControlRequest::Command;

std::vector<std::string> words(std::string_view text) {
  std::vector<std::string> result;
  while (!text.empty()) {
    const std::size_t end = std::min(text.find('\n'), text.size());
    result.push_back(Text::repaired(std::string(text.substr(0, end))));
    text.remove_prefix(std::min(end + 1, text.size()));
  }
  return result;
}

/// A process with `input` on its standard input, that knows what it was asked for.
class Lender {
 public:
  explicit Lender(std::string_view input) : text_(input), document_(JSON::Document::parse(text_)) {}

  CommandLine::Process process() {
    return {.standardInput =
                [this] {
                  asked_ = true;
                  return document_ ? &document_->root() : nullptr;
                },
            .currentDirectory = [] { return std::string("/folder"); },
            .parentProcess = [] { return std::optional<std::int32_t>(1); },
            .homeFolder = [] { return std::optional<std::string>("/home/user"); },
            .autoReviewed = [](const std::string& path) { return path.size() % 2 == 1; },
            .environment = [](std::string_view) { return std::nullopt; }};
  }
  bool wasAskedForInput() const { return asked_; }

 private:
  std::string text_;
  std::optional<JSON::Document> document_;
  bool asked_ = false;
};

void check(const ControlRequest& request, const std::vector<std::string>& arguments) {
  require(!arguments.empty() && wireName(request.command) == arguments.front());
  const bool hasWorkspace = request.command == Command::switchTo ||
                            request.command == Command::launch || request.command == Command::stop;
  require(request.workspace.has_value() == hasWorkspace);
  require(!hasWorkspace || !request.workspace->empty());
  require(request.agent.has_value() == (request.command == Command::notify));
  require(request.cwd.has_value() == (request.command == Command::notify));
  // A request is of a kind or of a progress, never of both.
  require((request.kind.has_value() || request.activity.has_value()) ==
          (request.command == Command::notify));
  require(!request.kind || !request.activity);
  const auto again = ControlCoding::decode<ControlRequest>(ControlCoding::line(request));
  require(again && *again == request);
}

}  // namespace

/// Any words give a decision, the same one each time; a request that comes of it survives the
/// socket, and only an agent's call looks at standard input. The words stand on lines of their own,
/// standard input behind the first NUL.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const CorvaneTests::Input input(data, size);
  const std::string_view text = input.text();
  const std::size_t end = std::min(text.find('\0'), text.size());
  const auto arguments = words(text.substr(0, end));
  Lender lender(text.substr(std::min(end + 1, text.size())));
  const auto parsed = CommandLine::parse(arguments, lender.process());
  require(parsed == CommandLine::parse(arguments, lender.process()));

  const bool isNotify = !arguments.empty() && arguments.front() == "notify";
  const bool namesAgent = std::ranges::find(arguments, "--agent") != arguments.end();
  require(!lender.wasAskedForInput() || (isNotify && namesAgent));
  if (const auto* const run = std::get_if<CommandLine::Run>(&parsed)) {
    check(run->request, arguments);
  } else if (const auto* const usage = std::get_if<CommandLine::Usage>(&parsed)) {
    require(usage->message.empty() == arguments.empty());
  } else if (std::holds_alternative<CommandLine::Nothing>(parsed)) {
    require(lender.wasAskedForInput());
  }
  return 0;
}
