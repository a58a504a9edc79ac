#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>

#include "CorvaneControl/Agent.h"
#include "CorvaneControl/OrderedJSON.h"
#include "CorvaneControl/Platform/Files.h"
#include "CorvaneControl/Platform/System.h"
#include "CorvaneControl/Result.h"

namespace CorvaneControl {

/// The hook entries that make an agent call `corvanectl notify` at its hook points, in the text of
/// the agent's own settings. Text in, text out; no file is touched (see AgentHookFile).
///
/// The settings are the user's. An entry is this program's when its command contains "corvanectl"
/// and ends with " notify --agent " and the agent's name; every other entry stays what and where it
/// is. So a tool whose path does not contain "corvanectl" can be added, but is not recognised
/// afterwards.
namespace AgentHooks {

/// The agent's folder in the user's home: ".claude".
std::string folder(Agent agent);
/// The file in that folder that holds the hooks: "settings.json".
std::string_view file(Agent agent);
/// The identifier of the agent's application.
std::string_view bundleID(Agent agent);
/// The hook points that get an entry, in this order.
std::span<const std::string_view> events(Agent agent);

enum class State : std::uint8_t {
  absent,    ///< No entry of this program is there.
  added,     ///< The entries are there, and adding them again would change nothing.
  outdated,  ///< Entries are there, but adding them again would change the text.
};

/// Why settings can't be edited.
struct Problem {
  enum class Kind : std::uint8_t {
    syntax,  ///< The text is no JSON.
    /// It is, but not of the shape that settings have: a root, "hooks" or matcher group that is no
    /// object, an event that is no array, for Cursor a handler that is no object.
    shape,
    /// The path of the tool is no UTF-8, so that no JSON can hold it. Nothing is said of the text.
    toolPath,
  };
  Kind kind{};
  std::optional<std::int64_t> line{};  ///< Of the syntax error; the first line is 1.

  static Problem syntax(std::int64_t line) { return {.kind = Kind::syntax, .line = line}; }
  static Problem shape() { return {.kind = Kind::shape}; }
  static Problem toolPath() { return {.kind = Kind::toolPath}; }
  bool operator==(const Problem&) const = default;
};

/// What the agent's shell is to run: `'/opt/bin/corvanectl' notify --agent claude`, the path quoted
/// against anything in it.
std::string command(Agent agent, std::string_view toolPath);

/// A new entry for one event: a handler, and for Claude and Codex a matcher group around it.
OrderedJSON entry(std::string_view command, Agent agent);

/// Settings with nothing but the entries, to show what would be added; empty when the path of the
/// tool is no UTF-8.
std::string snippet(Agent agent, std::string_view toolPath);

/// `text` with a current entry at every event of the agent, and at no other. The first entry that
/// is there already is brought up to date in its place, further ones go, a missing one comes last;
/// a group of the agent's events without any handler goes too. Empty or blank text is an empty
/// object. The indentation of `text` is kept, other white space is not.
Result<std::string, Problem> adding(std::string_view text, Agent agent, std::string_view toolPath);

/// `text` without the entries; groups and events that are thereby empty go with them, "hooks" stays
/// even if it is. White space changes as in `adding`, also when nothing was there to remove.
Result<std::string, Problem> removing(std::string_view text, Agent agent);

/// Whether the entries are in `text`.
Result<State, Problem> state(std::string_view text, Agent agent, std::string_view toolPath);

}  // namespace AgentHooks

/// One agent's settings on disk, in the home folder of a user.
struct AgentHookFile {
  Agent agent{};
  /// The user's own by default; "/" for a user who has none.
  std::string home = System::homeFolder().value_or("/");

  /// Why nothing could be told or done. Everything is as it was, but for the backup, which may
  /// already be new.
  struct Failure {
    /// The settings can't be edited. A file that is no UTF-8 is no JSON from its first line on.
    std::optional<AgentHooks::Problem> problem{};
    /// The file can't be read or written; there is one of the two.
    std::optional<Files::Failure> file{};
    bool operator==(const Failure&) const = default;
  };

  /// What adding or removing did.
  struct Change {
    bool written = false;  ///< Whether the text changed at all; a file is only written if it did.
    std::string path{};    ///< The file, symbolic links and ".." resolved.
    std::optional<std::string> backup{};  ///< Where the text before is; absent without one.
  };

  /// The path of the agent's folder, whether it exists or not.
  std::string folder() const;
  /// The path of the settings; there may be no file, or a symbolic link.
  std::string url() const;
  /// The same for messages: "~/.claude/settings.json".
  std::string displayPath() const;
  /// Whether the agent is on this machine: it has its folder in the home folder. It has none where
  /// "no such file" or "not a folder" is on the way; whatever else keeps one from looking is a
  /// failure.
  Result<bool, Failure> isHere(Files::Calls& calls = Files::systemCalls()) const;
  /// The same without the reason: false also when it can't be told.
  bool isSetUp() const;

  /// A file that is missing has no entries.
  Result<AgentHooks::State, Failure> state(std::string_view toolPath,
                                           Files::Calls& calls = Files::systemCalls()) const;

  /// A change that is worked out, and written only by `write`: time to look at other files first.
  class Draft {
   public:
    Draft(Files::Edit edit, bool hadEntries, std::string after);

    /// Whether the file holds entries of this program, current ones or not.
    bool hadEntries() const { return hadEntries_; }
    /// Whether the file is to hold another text than it does.
    bool changesText() const { return after_ != edit_.before(); }
    /// Writes what has been worked out; nothing when that is what the file holds. To be called
    /// once.
    Result<Change, Failure> write();

   private:
    Files::Edit edit_;
    bool hadEntries_;
    std::string after_;
  };

  /// What adding or removing the entries comes to, as AgentHooks does it; a missing file is an
  /// empty text, so that even removing makes one. The folder has to exist. The file is read here
  /// and, when it is written, looked at once more (see Files::Edit).
  ///
  /// The file is replaced whole, its old text kept beside it in a backup: its name and
  /// ".corvane-backup", overwritten at every change.
  Result<Draft, Failure> adding(std::string_view toolPath,
                                Files::Calls& calls = Files::systemCalls()) const;
  Result<Draft, Failure> removing(Files::Calls& calls = Files::systemCalls()) const;

  /// The same, written at once.
  Result<Change, Failure> add(std::string_view toolPath,
                              Files::Calls& calls = Files::systemCalls()) const;
  Result<Change, Failure> remove(Files::Calls& calls = Files::systemCalls()) const;
};

}  // namespace CorvaneControl
