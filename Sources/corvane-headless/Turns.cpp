#include "corvane-headless/Turns.h"

namespace CorvaneControl::Headless {

namespace {

/// Sessions that vanish don't say so: beyond this number all are forgotten.
constexpr std::size_t mostSessions = 4096;

}  // namespace

std::size_t& Turns::opened(const std::string& session) {
  if (calls_.size() >= mostSessions && !calls_.contains(session)) calls_.clear();
  return calls_[session];
}

void Turns::start(const std::string& session) { opened(session) = 0; }

bool Turns::work(const std::string& session) {
  const bool isNew = !calls_.contains(session);
  ++opened(session);
  return isNew;
}

std::optional<std::size_t> Turns::end(const std::string& session) {
  const auto turn = calls_.find(session);
  if (turn == calls_.end()) return std::nullopt;
  const std::size_t calls = turn->second;
  calls_.erase(turn);
  return calls;
}

}  // namespace CorvaneControl::Headless
