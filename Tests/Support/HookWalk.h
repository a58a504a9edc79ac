#pragma once

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

#include "CorvaneControl/OrderedJSON.h"

namespace CorvaneTests {

/// One handler in an agent's settings, and where it stands. Everything is JSON text, so that a
/// difference in any number's spelling shows.
struct FoundHandler {
  std::string event{};
  std::string group{};  ///< The members of its matcher group but the handlers; empty for Cursor.
  std::string handler{};
  bool isOurs = false;  ///< Whether it calls `corvanectl notify` for the agent.
  bool operator==(const FoundHandler&) const = default;
};

/// Every handler in the settings, in their order. Knows nothing of the code that it checks, and
/// walks over any shape.
class HookWalk {
 public:
  HookWalk(const CorvaneControl::OrderedJSON& root, std::string_view agent) : agent_(agent) {
    const CorvaneControl::OrderedJSON* const hooks = last(root, "hooks");
    if (hooks == nullptr || hooks->object() == nullptr) return;
    for (const auto& event : *hooks->object()) {
      if (event.value.array() == nullptr) continue;
      for (const auto& element : *event.value.array()) {
        agent == "cursor" ? add(event.key(), "", element) : addGroup(event.key(), element);
      }
    }
  }

  std::vector<FoundHandler> all() const { return found_; }
  std::vector<FoundHandler> users() const { return of(false); }
  std::vector<FoundHandler> ours() const { return of(true); }

 private:
  using OrderedJSON = CorvaneControl::OrderedJSON;

  static const OrderedJSON* last(const OrderedJSON& value, std::string_view key) {
    const OrderedJSON* found = nullptr;
    if (value.object() == nullptr) return found;
    for (const auto& member : *value.object()) {
      if (member.key() == key) found = &member.value;
    }
    return found;
  }

  void addGroup(std::string_view event, const OrderedJSON& group) {
    const OrderedJSON* const handlers = last(group, "hooks");
    if (handlers == nullptr || handlers->array() == nullptr) return;
    std::string others;
    for (const auto& member : *group.object()) {
      if (&member.value == handlers) continue;
      others.append(member.key()).append("=").append(member.value.text("")).append(";");
    }
    for (const auto& handler : *handlers->array()) add(event, others, handler);
  }

  void add(std::string_view event, const std::string& group, const OrderedJSON& handler) {
    found_.push_back({std::string(event), group, handler.text(""), isOurs(handler)});
  }

  bool isOurs(const OrderedJSON& handler) const {
    const OrderedJSON* const value = last(handler, "command");
    if (value == nullptr || !value->string()) return false;
    const std::string_view command = *value->string();
    const std::string end = " notify --agent " + agent_;
    return command.find("corvanectl") != std::string::npos && command.size() >= end.size() &&
           command.substr(command.size() - end.size()) == end;
  }

  std::vector<FoundHandler> of(bool isOurs) const {
    std::vector<FoundHandler> some;
    for (const auto& handler : found_) {
      if (handler.isOurs == isOurs) some.push_back(handler);
    }
    return some;
  }

  std::string agent_;
  std::vector<FoundHandler> found_;
};

}  // namespace CorvaneTests
