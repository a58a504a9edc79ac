#pragma once

#include <cstdlib>

namespace CorvaneControl {

/// Stands behind a switch over an enumeration whose every value has returned. Nothing comes here
/// but a value that the enumeration does not have, which ends the process.
[[noreturn]] inline void unreachable() { std::abort(); }

}  // namespace CorvaneControl
