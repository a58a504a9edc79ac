#pragma once

#include <optional>
#include <string_view>

namespace CorvaneControl {

/// Where a page is: the parts of a URL (RFC 3986) that name the place, as they are written. Views
/// into the text that was parsed.
struct URL {
  std::string_view host{};  ///< An IPv6 address with its brackets. Never empty.
  std::string_view path{};  ///< Empty, or from the first slash on.

  /// Absent for a text that is no URL, or names no host; the scheme may be missing ("//host/path").
  /// Whether the user, the port, the query and the fragment are well-formed counts, too.
  static std::optional<URL> parse(std::string_view text);

  bool operator==(const URL&) const = default;
};

}  // namespace CorvaneControl
