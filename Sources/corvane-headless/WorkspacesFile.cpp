#include "corvane-headless/WorkspacesFile.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdint>
#include <tuple>
#include <unordered_map>
#include <utility>

#include <fcntl.h>
#include <unistd.h>

#include "CorvaneControl/JSON.h"
#include "CorvaneControl/Platform/System.h"
#include "CorvaneControl/Platform/Text.h"
#include "CorvaneControl/Transfer.h"
#include "corvane-headless/Visible.h"

namespace CorvaneControl::Headless::WorkspacesFile {

namespace {

constexpr std::string_view sampleText = R"json([
  {"name": "Site", "section": "Work", "shortcut": "⌥1", "windows": 3, "active": true,
   "project": "~/Projects/site"},
  {"name": "Store", "section": "Work", "shortcut": "⌥2", "windows": 2,
   "project": "~/Projects/store"},
  {"name": "Mail", "section": "Every day", "shortcut": "⌥3", "windows": 1},
  {"name": "Notes", "section": "Every day", "windows": 0, "project": "~/Notes"}
])json";

constexpr std::string_view sectionWithoutName = "Workspaces";

std::uint64_t hash(std::string_view text, JSON::Hash hash) {
  hash.append(text);
  return hash.value();
}

/// An identifier made from a name, so that a workspace keeps its own from one start to the next.
UUID identifierOf(std::string_view name) {
  const std::array<std::uint64_t, 2> halves{hash(name, JSON::Hash()),
                                            hash(name, JSON::Hash(0x9e3779b97f4a7c15))};
  UUID identifier;
  for (std::size_t index = 0; index < identifier.bytes.size(); ++index) {
    identifier.bytes[index] = static_cast<std::uint8_t>(halves[index / 8] >> (8 * (7 - index % 8)));
  }
  // Version 8, "custom", of the variant that RFC 9562 describes.
  identifier.bytes[6] = static_cast<std::uint8_t>((identifier.bytes[6] & 0x0FU) | 0x80U);
  identifier.bytes[8] = static_cast<std::uint8_t>((identifier.bytes[8] & 0x3FU) | 0x80U);
  return identifier;
}

std::string at(std::size_t index) { return "[" + std::to_string(index) + "]"; }

/// Reads one workspace; the first problem that it meets stays.
class EntryReader {
 public:
  EntryReader(const JSON::Value& entry, const std::optional<std::string>& home)
      : entry_(entry), home_(home) {}

  /// Absent when there is a problem.
  std::optional<WorkspaceSummary> read() {
    WorkspaceSummary workspace;
    if (!isObject() || !hasKnownKeys() || !readName(workspace) || !readIdentifier(workspace) ||
        !readTexts(workspace) || !readActive(workspace) || !readWindows(workspace) ||
        !readProject(workspace) || !readAttention(workspace)) {
      return std::nullopt;
    }
    return workspace;
  }

  /// ".windows: not an integer": to be put behind the entry's own place.
  const std::string& problem() const { return problem_; }

 private:
  bool refuse(std::string_view key, std::string_view what) {
    problem_.append(".").append(visibleStart(key, 40)).append(": ").append(what);
    return false;
  }

  /// The member of that name; null when it is missing or null.
  const JSON::Value* member(std::string_view key) const {
    const JSON::Value* const value = entry_.find(key);
    return value && value->type() != JSON::Value::Type::null ? value : nullptr;
  }

  bool isObject() {
    if (!entry_.isObject()) problem_ = ": not an object";
    return entry_.isObject();
  }

  bool hasKnownKeys() {
    const auto isKnown = [](std::string_view key) {
      return std::apply([&](const auto&... field) { return ((field.key == key) || ...); },
                        WorkspaceSummary::fields);
    };
    for (const JSON::Member& given : entry_.members()) {
      if (!isKnown(given.key)) {
        return refuse(given.key,
                      "no such key; a workspace has name, section, shortcut, windows, active, "
                      "project, id and attention");
      }
    }
    return true;
  }

  /// Reads a text that the user will see; false after a problem.
  bool readText(std::string_view key, std::optional<std::string>& text) {
    const JSON::Value* const value = member(key);
    if (!value) return true;
    const auto string = value->asString();
    if (!string) return refuse(key, "not a string");
    if (!isVisible(*string)) return refuse(key, "holds a character that can't be shown");
    text = std::string(*string);
    return true;
  }

  bool readName(WorkspaceSummary& workspace) {
    std::optional<std::string> name;
    if (!readText("name", name)) return false;
    if (!name) return refuse("name", "missing");
    if (Text::isBlank(*name)) return refuse("name", "empty");
    workspace.name = *std::move(name);
    return true;
  }

  bool readIdentifier(WorkspaceSummary& workspace) {
    const JSON::Value* const value = member("id");
    const auto identifier =
        value ? UUID::parse(value->asString().value_or("")) : identifierOf(workspace.name);
    if (!identifier) return refuse("id", "not a UUID");
    workspace.id = *identifier;
    return true;
  }

  bool readTexts(WorkspaceSummary& workspace) {
    std::optional<std::string> section;
    if (!readText("section", section) || !readText("shortcut", workspace.shortcut)) return false;
    workspace.section = section.value_or(std::string(sectionWithoutName));
    return true;
  }

  bool readActive(WorkspaceSummary& workspace) {
    const JSON::Value* const value = member("active");
    if (!value) return true;
    const auto active = value->asBoolean();
    if (!active) return refuse("active", "neither true nor false");
    workspace.active = *active;
    return true;
  }

  bool readWindows(WorkspaceSummary& workspace) {
    const JSON::Value* const value = member("windows");
    if (!value) return true;
    const auto windows = value->asInteger();
    if (!windows || *windows < 0 || *windows > mostWindows) {
      return refuse("windows", "not a whole number from 0 to " + std::to_string(mostWindows));
    }
    workspace.windows = *windows;
    return true;
  }

  bool readProject(WorkspaceSummary& workspace) {
    if (!readText("project", workspace.project)) return false;
    if (!workspace.project) return true;
    std::string& path = *workspace.project;
    if (path == "~" || path.starts_with("~/")) {
      if (!home_) return refuse("project", "begins with \"~\", but there is no home folder");
      path.replace(0, 1, *home_);
    }
    if (!path.starts_with('/')) {
      return refuse("project", "not an absolute path (it may begin with \"~\")");
    }
    return true;
  }

  bool readAttention(WorkspaceSummary& workspace) {
    const JSON::Value* const value = member("attention");
    if (!value) return true;
    auto attention = ControlCoding::decode<Attention>(*value);
    if (!attention) return refuse("attention", attention.failure().description);
    workspace.attention = *std::move(attention);
    return true;
  }

  const JSON::Value& entry_;
  const std::optional<std::string>& home_;
  std::string problem_{};
};

/// What two workspaces must not have in common.
class Conflicts {
 public:
  /// The conflict of the next workspace with an earlier one, as ".name: ..."; absent when all is
  /// well. `place` is what messages call the list.
  std::optional<std::string> of(const WorkspaceSummary& workspace, const std::string& place) {
    const std::size_t position = count_++;
    const auto name = names_.try_emplace(workspace.name, position).first->second;
    if (name != position) return ".name: the same as that of " + place + at(name);
    const auto identifier = identifiers_.try_emplace(workspace.id, position).first->second;
    if (identifier != position) return ".id: the same as that of " + place + at(identifier);
    if (!workspace.active) return std::nullopt;
    if (active_) return ".active: " + place + at(*active_) + " is active already";
    active_ = position;
    return std::nullopt;
  }

 private:
  std::size_t count_ = 0;
  std::unordered_map<std::string, std::size_t> names_{};
  std::unordered_map<UUID, std::size_t> identifiers_{};
  std::optional<std::size_t> active_{};
};

}  // namespace

Result<std::vector<WorkspaceSummary>, Problem> parse(const std::string& text, std::string_view file,
                                                     const std::optional<std::string>& home) {
  const std::string name = visible(file);
  std::string parsed = text;  // parsing overwrites it, and the lines are counted afterwards
  JSON::SyntaxError error;
  const auto document = JSON::Document::parse(parsed, {}, &error);
  if (!document) {
    const auto line = 1 + std::ranges::count(std::string_view(text).substr(0, error.offset), '\n');
    return Problem{name + ":" + std::to_string(line) + ": not JSON: " + visible(error.reason)};
  }

  const JSON::Value* entries = &document->root();
  std::string place;
  if (entries->isObject()) {
    entries = entries->find("workspaces");
    place = "workspaces";
  }
  if (!entries || !entries->isArray()) return Problem{name + ": not an array of workspaces"};

  std::vector<WorkspaceSummary> workspaces;
  Conflicts conflicts;
  for (const JSON::Value& entry : entries->elements()) {
    const std::size_t index = workspaces.size();
    const auto problem = [&](std::string_view what) {
      std::string description = name + ": ";
      return Problem{description.append(place).append(at(index)).append(what)};
    };
    EntryReader reader(entry, home);
    auto workspace = reader.read();
    if (!workspace) return problem(reader.problem());
    if (const auto conflict = conflicts.of(*workspace, place)) return problem(*conflict);
    workspaces.push_back(*std::move(workspace));
  }
  return workspaces;
}

Result<std::vector<WorkspaceSummary>, Problem> read(const std::string& path,
                                                    const std::optional<std::string>& home) {
  const auto unreadable = [&](int code) {
    return Problem{visible(path) + ": " + System::errorText(code)};
  };
  const int descriptor = ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
  if (descriptor < 0) return unreadable(errno);
  std::string text;
  std::array<char, 8192> chunk{};
  ssize_t count = 0;
  do {
    count = Transfer::uninterrupted([&] { return ::read(descriptor, chunk.data(), chunk.size()); });
    if (count > 0) text.append(chunk.data(), static_cast<std::size_t>(count));
  } while (count > 0 && text.size() <= largestFile);
  const int code = errno;
  ::close(descriptor);
  if (count < 0) return unreadable(code);
  if (text.size() > largestFile) {
    return Problem{visible(path) + ": larger than " + std::to_string(largestFileMiB) + " MiB"};
  }
  return parse(text, path, home);
}

std::vector<WorkspaceSummary> sample(const std::optional<std::string>& home) {
  // Without a home folder there is no folder that could be told apart from it.
  auto workspaces = parse(std::string(sampleText), "the sample", home.value_or("/"));
  return *std::move(workspaces);
}

}  // namespace CorvaneControl::Headless::WorkspacesFile
