#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "CorvaneControl/Result.h"
#include "CorvaneControl/UnixSocket.h"

/// Where the application's end of the control socket lives, and how to reach it.
namespace CorvaneControl::ControlSocket {

inline constexpr std::string_view fileName = "control.sock";

/// `<applicationSupport>/<appName>/control.sock`; without `applicationSupport`, in the user's own
/// Application Support folder. Absent when the user has none (no home folder at all).
std::optional<std::string> path(std::string_view appName,
                                std::optional<std::string_view> applicationSupport = {});

/// Where the application may listen, in the order to try. What "CORVANE_SOCKET" names when it is
/// set and not empty, and nothing else; for an executable in an application bundle that names
/// itself, that application's path alone; otherwise the paths of "Corvane" and "Corvane Dev". Empty
/// when the user has no home folder at all.
std::vector<std::string> paths();

/// Connects to the running application: to the first of `paths()` where somebody listens, with the
/// time-outs of `UnixSocket::connect`. The caller owns the descriptor. Otherwise why the last path
/// failed; `system("connect", ENOENT)` when there is none.
Result<int, UnixSocket::Failure> connect(double timeout);

}  // namespace CorvaneControl::ControlSocket
