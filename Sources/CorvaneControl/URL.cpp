#include "CorvaneControl/URL.h"

#include <algorithm>
#include <cstddef>

#include "CorvaneControl/Hexadecimal.h"

namespace CorvaneControl {

namespace {

bool isLetter(char byte) { return (byte >= 'a' && byte <= 'z') || (byte >= 'A' && byte <= 'Z'); }
bool isDigit(char byte) { return byte >= '0' && byte <= '9'; }
bool isHexadecimal(char byte) { return Hexadecimal::value(byte) != Hexadecimal::noDigit; }

/// Whether the text consists of the unreserved bytes, the sub-delimiters, percent escapes, and the
/// bytes of `others`.
bool isMadeOf(std::string_view text, std::string_view others) {
  constexpr std::string_view marks = "-._~!$&'()*+,;=";
  for (std::size_t index = 0; index < text.size(); ++index) {
    const char byte = text[index];
    if (byte == '%') {
      if (text.size() - index < 3) return false;
      if (!isHexadecimal(text[index + 1]) || !isHexadecimal(text[index + 2])) return false;
      index += 2;
    } else if (!isLetter(byte) && !isDigit(byte) && marks.find(byte) == std::string_view::npos &&
               others.find(byte) == std::string_view::npos) {
      return false;
    }
  }
  return true;
}

bool isScheme(std::string_view text) {
  return !text.empty() && isLetter(text.front()) && std::ranges::all_of(text, [](char byte) {
    return isLetter(byte) || isDigit(byte) || byte == '+' || byte == '-' || byte == '.';
  });
}

/// Takes off what stands before the first of the `marks`, or everything; the mark stays.
std::string_view takeUntil(std::string_view& rest, std::string_view marks) {
  const auto taken = rest.substr(0, rest.find_first_of(marks));
  rest.remove_prefix(taken.size());
  return taken;
}

/// What may stand between the brackets of a host: the digits of an IPv6 address.
bool isAddress(std::string_view text) {
  return std::ranges::count(text, ':') >= 2 && std::ranges::all_of(text, [](char byte) {
           return isHexadecimal(byte) || byte == ':' || byte == '.';
         });
}

/// The host of an authority, an IPv6 address with its brackets; empty when there is none, or when
/// the authority is malformed.
std::string_view hostOf(std::string_view authority) {
  if (const auto at = authority.find('@'); at != std::string_view::npos) {
    if (!isMadeOf(authority.substr(0, at), ":")) return {};
    authority.remove_prefix(at + 1);
  }
  std::string_view host;
  if (authority.starts_with('[')) {
    const auto end = authority.find(']');
    if (end == std::string_view::npos || !isAddress(authority.substr(1, end - 1))) return {};
    host = authority.substr(0, end + 1);
  } else {
    host = authority.substr(0, authority.find(':'));
    if (!isMadeOf(host, "")) return {};
  }
  const auto port = authority.substr(host.size());
  if (port.empty()) return host;
  return port.front() == ':' && std::ranges::all_of(port.substr(1), isDigit) ? host : "";
}

}  // namespace

std::optional<URL> URL::parse(std::string_view text) {
  const auto scheme = takeUntil(text, ":/?#");
  if (text.starts_with(':') && isScheme(scheme)) {
    text.remove_prefix(1);
  } else if (!scheme.empty()) {
    return std::nullopt;
  }
  if (!text.starts_with("//")) return std::nullopt;
  text.remove_prefix(2);

  const auto host = hostOf(takeUntil(text, "/?#"));
  const auto path = takeUntil(text, "?#");
  const auto query = takeUntil(text, "#");
  const auto fragment = text.substr(text.empty() ? 0 : 1);
  const bool valid = isMadeOf(path, ":@/") && isMadeOf(query, ":@/?") && isMadeOf(fragment, ":@/?");
  if (host.empty() || !valid) return std::nullopt;
  return URL{host, path};
}

}  // namespace CorvaneControl
