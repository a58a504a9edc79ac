// The headers of Boost.JSON and its sources, so that no library is linked.
#include <boost/json/src.hpp>

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <span>
#include <string>
#include <string_view>

#include "CorvaneControl/JSON.h"
#include "Fuzz/Input.h"

using CorvaneTests::require;
namespace JSON = CorvaneControl::JSON;
namespace judge = boost::json;

namespace {

constexpr std::string_view byteOrderMark = "\xEF\xBB\xBF";

/// The judge rounds reals in its own way, a little off.
bool isNear(double left, double right) {
  return left == right ||
         std::abs(left - right) <= 1e-13 * std::max(std::abs(left), std::abs(right)) + 1e-300;
}

bool isSame(const JSON::Value& ours, const judge::value& theirs);

bool isSameNumber(const JSON::Value& ours, const judge::value& theirs) {
  if (theirs.is_int64()) {
    // A negative zero is a real to us.
    return ours.asInteger() == theirs.get_int64();
  }
  if (theirs.is_uint64()) {
    return ours.type() == JSON::Value::Type::unsignedInteger &&
           ours.asUnsigned() == theirs.get_uint64();
  }
  return ours.type() == JSON::Value::Type::real && isNear(ours.asReal(), theirs.get_double());
}

bool isSameArray(std::span<const JSON::Value> ours, const judge::array& theirs) {
  return std::equal(ours.begin(), ours.end(), theirs.begin(), theirs.end(), isSame);
}

bool isSameObject(const JSON::Value& ours, const judge::object& theirs) {
  if (ours.members().size() != theirs.size()) return false;
  return std::ranges::all_of(ours.members(), [&](const JSON::Member& member) {
    const judge::value* const other = theirs.if_contains({member.key.data(), member.key.size()});
    return other != nullptr && isSame(member.value, *other);
  });
}

bool isSame(const JSON::Value& ours, const judge::value& theirs) {
  switch (theirs.kind()) {
    case judge::kind::null:
      return ours.type() == JSON::Value::Type::null;
    case judge::kind::bool_:
      return ours.asBoolean() == theirs.get_bool();
    case judge::kind::int64:
    case judge::kind::uint64:
    case judge::kind::double_:
      return isSameNumber(ours, theirs);
    case judge::kind::string:
      return ours.asString() ==
             std::string_view(theirs.get_string().data(), theirs.get_string().size());
    case judge::kind::array:
      return ours.isArray() && isSameArray(ours.elements(), theirs.get_array());
    case judge::kind::object:
      return ours.isObject() && isSameObject(ours, theirs.get_object());
  }
  return false;
}

/// Whether the text may hold a number at an end of what a double can tell. There the judge takes
/// infinity for a number and refuses exponents that are long, whatever they are applied to.
bool mayBeOutOfRange(std::string_view text) {
  std::size_t digits = 0;
  bool isExponent = false;
  for (const char byte : text) {
    if (byte >= '0' && byte <= '9') {
      if (++digits >= (isExponent ? 3U : 290U)) return true;
    } else if (byte == 'e' || byte == 'E') {
      isExponent = true;
      digits = 0;
    } else if (byte != '+' && byte != '-' && byte != '.') {
      isExponent = false;
      digits = 0;
    }
  }
  return false;
}

}  // namespace

/// An independent reader comes to the same verdict, and to the same tree.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const CorvaneTests::Input input(data, size);
  if (mayBeOutOfRange(input.text())) return 0;
  std::string source(input.text());
  const auto ours = JSON::Document::parse(source);

  std::string_view text = input.text();
  if (text.starts_with(byteOrderMark)) text.remove_prefix(byteOrderMark.size());
  judge::parse_options options;
  options.max_depth = 512;
  judge::monotonic_resource memory;
  judge::error_code error;
  const judge::value theirs = judge::parse({text.data(), text.size()}, error, &memory, options);
  require(ours.has_value() == !error);
  require(!ours || isSame(ours->root(), theirs));
  return 0;
}
