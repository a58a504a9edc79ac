#include "CorvaneControl/ControlSocket.h"

#include <cerrno>
#include <utility>

#include "CorvaneControl/Bundle.h"
#include "CorvaneControl/Platform/System.h"

namespace CorvaneControl::ControlSocket {

std::optional<std::string> path(std::string_view appName,
                                std::optional<std::string_view> applicationSupport) {
  std::optional<std::string> base;
  if (applicationSupport) {
    base = *applicationSupport;
  } else {
    base = System::applicationSupportFolder();
  }
  if (!base) return std::nullopt;
  while (base->ends_with('/')) base->pop_back();
  return base->append("/").append(appName).append("/").append(fileName);
}

std::vector<std::string> paths() {
  const auto given = System::environmentValue("CORVANE_SOCKET");
  if (given && !given->empty()) return {*given};

  std::vector<std::string_view> applications = {"Corvane", "Corvane Dev"};
  if (const auto info = enclosingAppInfo()) {
    if (const auto identifier = info->find("CFBundleIdentifier"); identifier != info->end()) {
      applications = {identifier->second.ends_with(".dev") ? "Corvane Dev" : "Corvane"};
    }
  }
  std::vector<std::string> found;
  for (const std::string_view application : applications) {
    if (auto socket = path(application)) found.push_back(*std::move(socket));
  }
  return found;
}

Result<int, UnixSocket::Failure> connect(double timeout) {
  auto failure = UnixSocket::Failure::system("connect", ENOENT);
  for (const std::string& path : paths()) {
    auto connection = UnixSocket::connect(path, timeout);
    if (connection) return connection;
    failure = connection.failure();
  }
  return failure;
}

}  // namespace CorvaneControl::ControlSocket
