#pragma once

#include <map>
#include <optional>
#include <string>
#include <string_view>

/// Property lists, as an application bundle's Info.plist holds one.
namespace CorvaneControl::PropertyList {

/// The members of a property list's outermost dictionary that are strings; a member of another
/// type is left out, whether its text or bytes make sense or not, and of members with the same key
/// the last counts. Reads the XML and the binary form, and not the old one of braces and
/// semicolons: what builds applications writes the other two. Absent when `bytes` are neither, or
/// when the outermost value is no dictionary with string keys.
///
/// XML may be UTF-8, UTF-16 (with a byte-order mark or without), or what its declaration says of
/// Latin-1 and ASCII. A byte-order mark has the last word. White space may come before the
/// declaration, "--" may stand in a comment; declaration, document type and outer tag may be
/// missing.
///
/// The input is hostile until read. XML is read as a whole, nested at most 512 deep; a document
/// that declares entities is refused. Of the binary form only the outermost dictionary and its
/// strings are read, every offset is checked, and strings of more than 16 MiB in all are refused:
/// one string may be named by a million members.
std::optional<std::map<std::string, std::string>> strings(std::string_view bytes);

}  // namespace CorvaneControl::PropertyList
