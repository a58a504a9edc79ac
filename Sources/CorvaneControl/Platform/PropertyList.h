#pragma once

#include <map>
#include <optional>
#include <string>
#include <string_view>

/// Property lists, as an application bundle's Info.plist holds one.
namespace CorvaneControl::PropertyList {

/// The members of a property list's outermost dictionary that are strings; a member of another
/// type is left out. Reads the XML and the binary form. Absent when `bytes` are neither, or when
/// the outermost value is no dictionary with string keys. The input is hostile until read: every
/// offset is checked, nesting is bounded (512), and no entity of a document type is expanded.
std::optional<std::map<std::string, std::string>> strings(std::string_view bytes);

}  // namespace CorvaneControl::PropertyList
