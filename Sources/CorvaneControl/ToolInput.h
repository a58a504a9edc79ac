#pragma once

#include <algorithm>
#include <optional>
#include <span>

#include "CorvaneControl/JSON.h"

/// What several subjects read of a tool's input, as the agent sent it.
namespace CorvaneControl::ToolInput {

/// The tool's input in a hook's; an empty object when there is none.
inline JSON::Value of(const JSON::Value& hookInput) {
  const auto* input = hookInput.object("tool_input");
  return input ? *input : JSON::Value::ofObject({});
}

/// The elements of a list of objects; absent for every other value, and for null.
inline std::optional<std::span<const JSON::Value>> objects(const JSON::Value* list) {
  if (!list || !list->isArray()) return std::nullopt;
  const auto elements = list->elements();
  if (!std::ranges::all_of(elements, &JSON::Value::isObject)) return std::nullopt;
  return elements;
}

/// Whether more than one option of a question may be chosen.
inline bool takesSeveral(const JSON::Value& question) {
  const auto* multiSelect = question.find("multiSelect");
  return multiSelect && multiSelect->asBoolean().value_or(false);
}

}  // namespace CorvaneControl::ToolInput
