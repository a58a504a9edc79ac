#include "Cost/Work.h"

#include <cstdint>
#include <cstdlib>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "CorvaneControl/AgentHooks.h"
#include "CorvaneControl/AgentNotification.h"
#include "CorvaneControl/AgentPermission.h"
#include "CorvaneControl/AgentProgress.h"
#include "CorvaneControl/CodexTranscript.h"
#include "CorvaneControl/ControlCommandLine.h"
#include "CorvaneControl/ControlProtocol.h"
#include "CorvaneControl/JSON.h"
#include "CorvaneControl/OrderedJSON.h"
#include "CorvaneControl/Platform/Markdown.h"
#include "CorvaneControl/Platform/PropertyList.h"
#include "CorvaneControl/Platform/Text.h"
#include "CorvaneControl/UnixSocket.h"
#include "Support/TemporaryFile.h"
#include "corvane-headless/Visible.h"
#include "corvane-headless/WorkspacesFile.h"

namespace CorvaneTests {

namespace {

using namespace std::string_view_literals;

using CorvaneControl::Agent;
using CorvaneControl::AgentPermission;
using CorvaneControl::ControlRequest;
using CorvaneControl::ControlResponse;
using CorvaneControl::LineBuffer;
using CorvaneControl::OrderedJSON;
namespace AgentHooks = CorvaneControl::AgentHooks;
namespace AgentNotification = CorvaneControl::AgentNotification;
namespace ControlCoding = CorvaneControl::ControlCoding;
namespace Headless = CorvaneControl::Headless;
namespace JSON = CorvaneControl::JSON;
namespace Text = CorvaneControl::Text;

using Task = std::function<void()>;

/// Work that gave nothing costs nothing, and would show nothing.
void require(bool done) {
  if (!done) std::abort();
}

std::string filled(std::size_t bytes, std::string_view piece) {
  std::string text;
  text.reserve(bytes + piece.size());
  while (text.size() < bytes) text += piece;
  return text;
}

/// `piece` over and over, each "#" in it replaced by a number that no other has; those of a larger
/// number first.
std::string numbered(std::size_t bytes, std::string_view piece) {
  std::string text;
  for (std::size_t number = bytes; text.size() < bytes; --number) {
    for (const char byte : piece) {
      if (byte == '#') {
        text += std::to_string(10'000'000 + number);
      } else {
        text += byte;
      }
    }
  }
  return text;
}

/// The same as the elements of a list or the members of an object.
std::string list(std::size_t bytes, std::string_view element) {
  std::string text = numbered(bytes, std::string(element) + ",");
  text.pop_back();
  return text;
}

template <class Record>
Task decoding(std::string text) {
  return [text = std::move(text)] { require(bool(ControlCoding::decode<Record>(text))); };
}

Task parsing(std::string text) {
  return [text = std::move(text)] {
    std::string copy = text;
    require(bool(JSON::Document::parse(copy)));
  };
}

Task parsingOrdered(std::string text) {
  return [text = std::move(text)] { require(bool(OrderedJSON::parse(text))); };
}

Task hookInput(Agent agent, std::string text) {
  return [agent, text = std::move(text)] {
    std::string copy = text;
    const auto document = JSON::Document::parse(copy, "tool_response");
    require(bool(document));
    const bool tells = CorvaneControl::AgentProgress::parse(agent, document->root()) ||
                       AgentNotification::event(agent, document->root(), {});
    require(tells);
  };
}

/// A tool's input in memory, without the work of reading it.
class ToolInput {
 public:
  explicit ToolInput(std::string text)
      : text_(std::make_shared<std::string>(std::move(text))),
        document_(std::make_shared<JSON::Document>(*JSON::Document::parse(*text_))) {}
  const JSON::Value& value() const { return document_->root(); }

 private:
  std::shared_ptr<std::string> text_;
  std::shared_ptr<JSON::Document> document_;
};

Task card(std::string tool, std::string text) {
  return [tool = std::move(tool), input = ToolInput(std::move(text))] {
    const auto made = AgentPermission::parse(tool, input.value(), {.cwd = "/p", .home = "/h"});
    require(made.has_value());
    require(made->preview().lines.size() <= made->lines.size());
  };
}

Task plan(std::string text) {
  return [input = ToolInput("{\"plan\":\"" + text + "\"}")] {
    require(AgentPermission::plan(input.value(), {}).has_value());
  };
}

Task fingerprint(std::string text) {
  return [input = ToolInput(std::move(text))] {
    require(AgentPermission::fingerprint("T", &input.value()).has_value());
  };
}

Task preview(std::string text) {
  return [text = std::move(text)] { require(AgentNotification::messagePreview(text).has_value()); };
}

Task plainText(std::string text) {
  return [text = std::move(text)] { require(!CorvaneControl::Markdown::plainText(text).empty()); };
}

Task propertyList(std::string text) {
  return [text = std::move(text)] {
    require(CorvaneControl::PropertyList::strings(text).has_value());
  };
}

void appendNumber(std::string& bytes, std::size_t number, int size) {
  for (int byte = size - 1; byte >= 0; --byte) {
    bytes += static_cast<char>(static_cast<std::uint8_t>(number >> (8 * byte)));
  }
}

/// The binary form of a dictionary whose keys and values are strings.
std::string binaryPropertyList(std::size_t bytes) {
  const std::size_t members = bytes / 20;
  std::string text = "bplist00";
  std::vector<std::size_t> offsets{text.size()};
  text += "\xDF\x12"sv;  // a dictionary whose count is a number of four bytes
  appendNumber(text, members, 4);
  for (std::size_t reference = 1; reference <= 2 * members; ++reference) {
    appendNumber(text, reference, 4);
  }
  for (std::size_t string = 0; string < 2 * members; ++string) {
    offsets.push_back(text.size());
    text += "\x58";  // eight ASCII characters
    text += std::to_string(10'000'000 + string);
  }
  const std::size_t table = text.size();
  for (const std::size_t offset : offsets) appendNumber(text, offset, 4);
  text += "\0\0\0\0\0\0\x04\x04"sv;  // the sizes of an offset and of a reference
  appendNumber(text, offsets.size(), 8);
  appendNumber(text, 0, 8);
  appendNumber(text, table, 8);
  return text;
}

/// The transcript is read to its beginning, which is what a session without settings costs.
Task transcript(std::string text) {
  auto file = std::make_shared<TemporaryFile>();
  file->hold(text);
  return [file] {
    require(!CorvaneControl::CodexTranscript::autoReviewed(file->path(), {.window = 4096}));
  };
}

void lineByLine(LineBuffer& buffer) {
  while (buffer.nextLine()) {
  }
}
void together(LineBuffer& buffer) { buffer.nextLines(); }

/// What arrives in pieces of `piece` bytes; `take` takes all lines that are there after each.
Task framing(std::string stream, std::size_t piece, void (*take)(LineBuffer&) = lineByLine) {
  return [stream = std::move(stream), piece, take] {
    LineBuffer buffer;
    std::string_view rest = stream;
    while (!rest.empty()) {
      buffer.append(rest.substr(0, piece));
      rest.remove_prefix(std::min(piece, rest.size()));
      take(buffer);
    }
    require(buffer.count() == 0);
  };
}

Task workspaces(std::string text) {
  return [text = std::move(text)] {
    require(bool(Headless::WorkspacesFile::parse(text, "file", "/h")));
  };
}

template <class Record>
Task writing(std::string text) {
  return [record = *ControlCoding::decode<Record>(std::move(text))] {
    require(!ControlCoding::line(record).empty());
  };
}

Task commandLine(std::string_view command, std::size_t words) {
  std::vector<std::string> arguments{std::string(command)};
  for (; words > 0; --words) arguments.push_back(std::to_string(words));
  return [arguments = std::move(arguments)] {
    const auto parsed = CorvaneControl::ControlCommandLine::parse(arguments, {});
    require(std::holds_alternative<CorvaneControl::ControlCommandLine::Run>(parsed));
  };
}

constexpr std::string_view workspace =
    R"({"active":false,"attention":{"agent":"claude","kind":"done","since":"2026-11-20T09:38:27Z"},)"
    R"("id":"00000000-0000-4000-8000-0000#","name":"Site #","project":"/p/#","section":"Work",)"
    R"("windows":3})";

std::string response(std::size_t bytes) {
  return R"({"ok":true,"workspaces":[)" + list(bytes, workspace) + "]}";
}

std::string request(std::string_view member, const std::string& value) {
  return R"({"command":"notify","agent":"claude",")" + std::string(member) + "\":" + value + "}";
}

std::string text(std::string_view value) { return "\"" + std::string(value) + "\""; }

std::string cardRequest(std::size_t bytes) {
  return request("permission", R"({"action":"run","complete":true,"subject":"s","lines":[)" +
                                   list(bytes, R"({"kind":"added","text":"line # of \"many\""})") +
                                   "]}");
}

std::string settings(std::size_t bytes) {
  return R"({"hooks":{"Stop":[)" +
         list(bytes, R"({"hooks":[{"type":"command","command":"tool # \u00e9"}]})") + "]}}";
}

std::string claude(std::string_view event, std::string_view member, const std::string& value) {
  return R"({"cwd":"/p","hook_event_name":")" + std::string(event) + R"(","session_id":"s",")" +
         std::string(member) + "\":" + value + "}";
}

const Work work[] = {
    // What the control socket brings
    {"recordOfManyWorkspaces",
     [](std::size_t bytes) { return decoding<ControlResponse>(response(bytes)); }},
    {"recordOfALongText",
     [](std::size_t bytes) {
       return decoding<ControlRequest>(request("message", text(filled(bytes, "a\\n\\u00e9"))));
     }},
    {"recordOfManyLines",
     [](std::size_t bytes) { return decoding<ControlRequest>(cardRequest(bytes)); }},
    {"recordOfManyChoices",
     [](std::size_t bytes) {
       return decoding<ControlResponse>(R"({"ok":true,"choices":[)" + list(bytes, "[0,1]") + "]}");
     }},
    {"recordOfManyUnknownKeys",
     [](std::size_t bytes) {
       return decoding<ControlResponse>("{" + list(bytes, R"("k#":[1])") + R"(,"ok":true})");
     }},

    // JSON
    {"jsonMembers", [](std::size_t bytes) { return parsing("{" + list(bytes, R"("k#":#)") + "}"); }},
    {"jsonOneKeyOverAndOver",
     [](std::size_t bytes) { return parsing("{" + list(bytes, R"("k":0)") + "}"); }},
    {"jsonElements", [](std::size_t bytes) { return parsing("[" + list(bytes, "1.5e3") + "]"); }},
    {"jsonObjects",
     [](std::size_t bytes) { return parsing("[" + list(bytes, R"({"b":[],"a":{}})") + "]"); }},
    {"jsonEscapes",
     [](std::size_t bytes) { return parsing(text(filled(bytes, "\\ud83d\\ude00\\n"))); }},
    {"jsonDigits", [](std::size_t bytes) { return parsing("0." + filled(bytes, "1")); }},
    {"orderedJSONMembers",
     [](std::size_t bytes) { return parsingOrdered("{" + list(bytes, R"("k#":#)") + "}"); }},
    {"orderedJSONElements",
     [](std::size_t bytes) { return parsingOrdered("[" + list(bytes, "[\"a longer text\"]") + "]"); }},
    {"orderedJSONEscapes",
     [](std::size_t bytes) { return parsingOrdered(text(filled(bytes, "\\u00e9\\n\xFF"))); }},
    {"hookFile",
     [](std::size_t bytes) {
       return Task([text = settings(bytes)] {
         const auto added = AgentHooks::adding(text, Agent::claude, "/opt/corvanectl");
         require(added && AgentHooks::removing(*added, Agent::claude) &&
                 AgentHooks::state(*added, Agent::claude, "/opt/corvanectl"));
       });
     }},

    // Agents' input
    {"prompt",
     [](std::size_t bytes) {
       return hookInput(Agent::claude,
                        claude("UserPromptSubmit", "prompt", text(filled(bytes, "do it\\n "))));
     }},
    {"promptOfBlanks",
     [](std::size_t bytes) {
       return hookInput(Agent::codex,
                        claude("UserPromptSubmit", "prompt", text(filled(bytes, " \\n") + "x")));
     }},
    {"promptInATag",
     [](std::size_t bytes) {
       return hookInput(
           Agent::claude,
           claude("UserPromptSubmit", "prompt",
                  text("<cross-session-message a='" + filled(bytes, "x ") + "'>go")));
     }},
    {"toolResponse",
     [](std::size_t bytes) {
       return hookInput(Agent::claude, claude("PostToolUse", "tool_response",
                                              "[" + list(bytes, R"({"a":"b\n"})") + "]"));
     }},
    {"finishedCall",
     [](std::size_t bytes) {
       return hookInput(Agent::codex,
                        claude("PostToolUse", "tool_input",
                               "{" + list(bytes, R"("k#":"a/b")") + R"(},"tool_name":"T")"));
     }},
    {"finalMessage",
     [](std::size_t bytes) {
       return hookInput(Agent::codex, claude("Stop", "last_assistant_message",
                                             text(filled(bytes, "- **item** of `list`\\n"))));
     }},
    {"suggestions",
     [](std::size_t bytes) {
       return hookInput(Agent::codex,
                        claude("Stop", "last_assistant_message",
                               text("{\\\"suggestion\\\":[" + filled(bytes, "1,") + "1]} no")));
     }},
    {"folders",
     [](std::size_t bytes) {
       return hookInput(Agent::cursor, R"({"hook_event_name":"stop","status":"completed",)"
                                       R"("workspace_roots":[)" +
                                           list(bytes, "\"relative\"") + R"(,"/p"]})");
     }},
    {"words",
     [](std::size_t bytes) {
       return hookInput(Agent::claude,
                        claude("PermissionRequest", "tool_input",
                               R"({"command":[)" + list(bytes, "\"a b\"") + "]}"));
     }},

    // Transcripts
    {"transcriptOfOtherLines",
     [](std::size_t bytes) { return transcript(filled(bytes, "{\"type\":\"event\"}\n")); }},
    {"transcriptOfMarkers",
     [](std::size_t bytes) { return transcript(filled(bytes, "\"type\":\"turn_context\",")); }},
    {"transcriptOfMarkersInOtherRecords",
     [](std::size_t bytes) {
       return transcript(filled(bytes, "{\"a\":{\"type\":\"turn_context\"}}\n"));
     }},
    {"transcriptOfOneLine", [](std::size_t bytes) { return transcript(filled(bytes, "x")); }},

    // Property lists
    {"propertyListInXML",
     [](std::size_t bytes) {
       return propertyList("<plist><dict>" +
                           numbered(bytes, "<key>k#</key><string>v &amp; #</string>") +
                           "</dict></plist>");
     }},
    {"propertyListOfOneText",
     [](std::size_t bytes) {
       return propertyList("<plist><dict><key>k</key><string>" + filled(bytes, "a&lt;\n") +
                           "</string></dict></plist>");
     }},
    {"propertyListInBinary",
     [](std::size_t bytes) { return propertyList(binaryPropertyList(bytes)); }},

    // Workspaces files and command lines
    {"workspacesFile",
     [](std::size_t bytes) { return workspaces("[" + list(bytes, workspace) + "]"); }},
    {"workspacesFileOfNames",
     [](std::size_t bytes) { return workspaces("[" + list(bytes, R"({"name":"#"})") + "]"); }},
    {"workspacesFileOfOneName",
     [](std::size_t bytes) {
       return workspaces(R"([{"name":")" + filled(bytes, "name ") + "\"}]");
     }},
    {"wordsOfACommand",
     [](std::size_t bytes) { return commandLine("switch", bytes / 8); }},

    // Lines
    {"linesInOnePiece",
     [](std::size_t bytes) { return framing(filled(bytes, "a short line\n"), bytes * 2); }},
    {"emptyLines", [](std::size_t bytes) { return framing(filled(bytes, "\n"), bytes * 2); }},
    {"linesInPieces",
     [](std::size_t bytes) { return framing(filled(bytes, "a short line\n"), 4096); }},
    {"oneLineInPieces",
     [](std::size_t bytes) { return framing(filled(bytes, "x") + "\n", 64); }},
    {"linesTogetherInPieces",
     [](std::size_t bytes) { return framing(filled(bytes, "a short line\n"), 4096, together); }},
    {"oneLineTogetherInPieces",
     [](std::size_t bytes) { return framing(filled(bytes, "x") + "\n", 64, together); }},

    // Cards
    {"cardOfLines",
     [](std::size_t bytes) {
       return card("Write", R"({"file_path":"/p/a","content":")" + filled(bytes, "line\\n") + "\"}");
     }},
    {"cardOfOneLine",
     [](std::size_t bytes) {
       return card("Write", R"({"file_path":"/p/a","content":")" + filled(bytes, "é") + "\"}");
     }},
    {"cardOfACommand",
     [](std::size_t bytes) {
       return card("Bash", R"({"command":")" + filled(bytes, " \\n") + "ls\"}");
     }},
    {"cardOfEdits",
     [](std::size_t bytes) {
       return card("MultiEdit", R"({"file_path":"/p/a","edits":[)" +
                                    list(bytes, R"({"old_string":"a","new_string":"#"})") + "]}");
     }},
    {"cardOfAPatch",
     [](std::size_t bytes) {
       return card("apply_patch",
                   R"({"command":")" + filled(bytes, "*** Update File: a\\n+x\\n-y\\n") + "\"}");
     }},
    {"cardOfArguments",
     [](std::size_t bytes) { return card("T", "{" + list(bytes, R"("k#":["v#"])") + "}"); }},
    {"cardOfAnAddress",
     [](std::size_t bytes) {
       return card("WebFetch", R"({"url":"https://example.org/)" + filled(bytes, "a%20") + "\"}");
     }},
    {"planOfLines", [](std::size_t bytes) { return plan(filled(bytes, "1. **step**\\n")); }},
    {"planOfOneLine", [](std::size_t bytes) { return plan(filled(bytes, "*step* ")); }},

    // What is shown
    {"previewOfItems",
     [](std::size_t bytes) { return preview(filled(bytes, "- **item** and `code`\n")); }},
    {"previewOfHeadings", [](std::size_t bytes) { return preview(filled(bytes, "# heading\n")); }},
    {"previewOfBlankLines", [](std::size_t bytes) { return preview(filled(bytes, " \n") + "x"); }},
    {"previewOfLinks",
     [](std::size_t bytes) { return preview("[x](" + filled(bytes, "y") + ") *z*"); }},
    {"markdownOfEmphasis",
     [](std::size_t bytes) { return plainText(filled(bytes / 16, "*a* **b** ~~c~~ ")); }},
    {"markdownOfLinks",
     [](std::size_t bytes) { return plainText(filled(bytes / 16, "[a](b \"c\") <d:e> ")); }},
    {"visibleText",
     [](std::size_t bytes) {
       return Task([text = filled(bytes, "a\x1B[2J\\\t\xFF\u202E")] {
         const std::string shown = Headless::visible(text);
         require(!Headless::rows(shown, 40).empty());
       });
     }},

    // What is written
    {"fingerprintOfATool",
     [](std::size_t bytes) { return fingerprint("{" + list(bytes, R"("k#":"a/\"\n")") + "}"); }},
    {"fingerprintOfALongText",
     [](std::size_t bytes) { return fingerprint(R"({"a":")" + filled(bytes, "x/\\n") + "\"}"); }},
    {"writtenWorkspaces",
     [](std::size_t bytes) { return writing<ControlResponse>(response(bytes)); }},
    {"writtenCard", [](std::size_t bytes) { return writing<ControlRequest>(cardRequest(bytes)); }},
    {"writtenText",
     [](std::size_t bytes) {
       return writing<ControlRequest>(request("message", text(filled(bytes, "a\\u0001\\\"é"))));
     }},
    {"writtenMalformedText",
     [](std::size_t bytes) {
       ControlRequest request;
       request.message = filled(bytes, "a\xFF\xC3");
       return Task([request] { require(!ControlCoding::line(request).empty()); });
     }},
    {"writtenSettings",
     [](std::size_t bytes) {
       return Task([value = *OrderedJSON::parse(settings(bytes))] {
         require(!value.text("  ").empty());
       });
     }},
    {"writtenAnswers",
     [](std::size_t bytes) {
       const std::string questions =
           R"({"questions":[{"question":"q?","header":"h","options":[{"label":"a"},{"label":"b"}]}],)"
           R"("pad":[)" +
           list(bytes, "\"x/#\"") + "]}";
       const ControlResponse response{.ok = true,
                                      .decision = CorvaneControl::PermissionAnswer::allowed,
                                      .choices = {{{0}}}};
       return Task([input = ToolInput(R"({"tool_input":)" + questions + "}"), response] {
         ControlRequest asked;
         asked.agent = "claude";
         asked.permission = AgentPermission::question(*input.value().object("tool_input"), {});
         require(response.hookOutput(asked, &input.value()).has_value());
       });
     }},
};

}  // namespace

std::span<const Work> allWork() { return work; }

}  // namespace CorvaneTests
