#pragma once

#include <utility>
#include <variant>

namespace CorvaneControl {

/// The outcome of an operation that can fail: its value, or why there is none.
///
/// Failures that belong to an ordinary day (the application is not running) travel this way, not as
/// exceptions: the first throw of a static program costs more than everything else the command does
/// (see Documentation/decisions/0001-failures-are-values.md).
///
///     const auto connection = UnixSocket::connect(path, 10);
///     if (!connection) return report(connection.failure().description());
///     use(*connection);
template <class Value, class Failure>
class [[nodiscard]] Result {
 public:
  Result(Value value) : outcome_(std::in_place_index<0>, std::move(value)) {}
  Result(Failure failure) : outcome_(std::in_place_index<1>, std::move(failure)) {}

  /// Whether there is a value.
  explicit operator bool() const { return outcome_.index() == 0; }

  /// The value; only to be asked for when there is one.
  const Value& operator*() const& { return *std::get_if<0>(&outcome_); }
  Value& operator*() & { return *std::get_if<0>(&outcome_); }
  Value&& operator*() && { return std::move(*std::get_if<0>(&outcome_)); }
  const Value* operator->() const { return std::get_if<0>(&outcome_); }
  Value* operator->() { return std::get_if<0>(&outcome_); }

  /// Why there is no value; only to be asked for when there is none.
  const Failure& failure() const { return *std::get_if<1>(&outcome_); }

 private:
  std::variant<Value, Failure> outcome_;
};

}  // namespace CorvaneControl
