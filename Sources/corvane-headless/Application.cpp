#include "corvane-headless/Application.h"

#include <algorithm>
#include <iterator>
#include <utility>
#include <variant>

#include "CorvaneControl/AgentPermission.h"
#include "CorvaneControl/DisplayPath.h"
#include "CorvaneControl/Platform/System.h"
#include "CorvaneControl/Platform/Text.h"
#include "corvane-headless/CardDrawing.h"
#include "corvane-headless/Visible.h"

namespace CorvaneControl::Headless {

namespace {

using Answering = CommandLine::Answering;

/// Scalars of an agent's name that are shown.
constexpr std::size_t longestAgent = 40;
/// Allowed tool calls that are remembered until they are done.
constexpr std::size_t mostAllowed = 64;

std::string agentOf(const ControlRequest& request) {
  const std::string name = visibleLine(Text::capitalized(request.agent.value_or("")), longestAgent);
  return name.empty() ? "An agent" : name;
}

/// What tells the sessions of all agents apart: an agent without one is told by its folder.
std::string sessionOf(const ControlRequest& request) {
  return request.agent.value_or("") + "\n" + request.session.value_or("") + "\n" +
         (request.session ? "" : request.cwd.value_or(""));
}

/// What tells the tool calls of all sessions apart; absent when the agent did not say.
std::optional<std::string> callOf(const ControlRequest& request) {
  if (!request.toolCall) return std::nullopt;
  return sessionOf(request) + "\n" + *request.toolCall;
}

Attention attentionOf(const ControlRequest& request) {
  return {.agent = request.agent.value_or(""),
          .kind = request.kind.value_or(AttentionKind::needsInput),
          .message = request.message,
          .since = Date::now(),
          .session = request.session,
          .folder = request.cwd};
}

std::string counted(std::int64_t count, const std::string& what) {
  return std::to_string(count) + " " + what + (count == 1 ? "" : "s");
}

std::string_view verdict(const PermissionReply& reply, AgentPermission::Action action) {
  const bool allowed = reply.answer == PermissionAnswer::allowed;
  if (action == AgentPermission::Action::ask) return allowed ? "Answered" : "Declined";
  if (action != AgentPermission::Action::plan) return allowed ? "Allowed" : "Denied";
  if (!allowed) return "Kept planning";
  return reply.approval == PlanApproval::automatic ? "Approved without further asking" : "Approved";
}

/// What the log tells of the options that were chosen for the questions of a card: a line each.
std::vector<std::string> chosenIn(const AgentPermission& card, const PermissionReply& reply) {
  std::vector<std::string> lines;
  if (!card.questions || !reply.choices) return lines;
  for (std::size_t index = 0; index < reply.choices->size(); ++index) {
    const AgentPermission::Question& question = (*card.questions)[index];
    std::vector<std::string> labels;
    for (const std::int64_t option : (*reply.choices)[index]) {
      labels.push_back(visibleLine(question.options[static_cast<std::size_t>(option)].label, 200));
    }
    lines.push_back("Answered " + visibleLine(question.text, 200) + ": " +
                    Text::joined(labels, ", "));
  }
  return lines;
}

/// A turn's task for the log. What an agent tells itself when a task in the background has ended
/// comes as markup, perhaps cut; of it, the words that are for people.
std::string wordsOf(std::string_view task) {
  constexpr std::string_view opening = "<summary>";
  if (!task.starts_with("<task-notification>")) return visibleLine(task);
  const std::size_t begin = task.find(opening);
  const std::size_t end = task.find("</summary>");
  if (begin == std::string_view::npos || end == std::string_view::npos || end < begin) {
    return "A task in the background has ended";
  }
  return visibleLine(task.substr(begin + opening.size(), end - begin - opening.size()));
}

ControlResponse accepted() {
  ControlResponse response;
  response.ok = true;
  return response;
}

}  // namespace

Application::Application(Workspaces workspaces, Answering answering, Console& console,
                         Clients& clients)
    : workspaces_(std::move(workspaces)),
      answering_(answering),
      console_(console),
      clients_(clients) {}

void Application::request(ConnectionID connection, const ControlRequest& request) {
  using Command = ControlRequest::Command;
  const std::string name = request.workspace.value_or("");
  switch (request.command) {
    case Command::list:
      return clients_.answer(connection, list());
    case Command::current:
      return clients_.answer(connection, current());
    case Command::switchTo:
      return clients_.answer(connection, switchTo(name));
    case Command::launch:
      return clients_.answer(connection, launch(name));
    case Command::stop:
      return clients_.answer(connection, stop(name));
    case Command::subscribe:
      return subscribe(connection);
    case Command::notify:
      return notify(connection, request);
  }
}

void Application::subscribe(ConnectionID connection) {
  console_.log("A client follows the workspaces.");
  const auto position = workspaces_.current();
  ControlEvent first{.event = ControlEvent::Kind::workspace};
  if (position) first.workspace = workspaces_[*position];
  clients_.subscribe(connection, first);
}

ControlResponse Application::list() {
  console_.log("Listed " +
               counted(static_cast<std::int64_t>(workspaces_.all().size()), "workspace") + ".");
  ControlResponse response = accepted();
  response.workspaces = workspaces_.all();
  return response;
}

ControlResponse Application::current() {
  const auto position = workspaces_.current();
  if (!position) return refusal("current", "No workspace is active.");
  console_.log("Told the current workspace: " + workspaces_[*position].name + ".");
  return about(*position);
}

ControlResponse Application::switchTo(std::string_view name) {
  const auto position = workspaces_.find(name);
  if (!position) return refusal("switch", position.failure().message);
  if (workspaces_.switchTo(*position)) {
    console_.log("Switched to " + workspaces_[*position].name + ".");
    // A mark is gone before anybody hears of the switch, so that nobody shows a stale one.
    const bool wasMarked = workspaces_.clearMark(*position);
    cardMarks_.erase(*position);
    clients_.publish({ControlEvent::Kind::workspace, workspaces_[*position]});
    if (wasMarked) clients_.publish({ControlEvent::Kind::attention, workspaces_[*position]});
  } else {
    console_.log("Stayed in " + workspaces_[*position].name + ".");
    clearMark(*position);
  }
  return about(*position);
}

ControlResponse Application::launch(std::string_view name) {
  const auto position = workspaces_.find(name);
  if (!position) return refusal("launch", position.failure().message);
  windowsChanged(*position, "Launched ", workspaces_.launch(*position));
  return about(*position);
}

ControlResponse Application::stop(std::string_view name) {
  const auto position = workspaces_.find(name);
  if (!position) return refusal("stop", position.failure().message);
  const std::int64_t before = workspaces_.stop(*position);
  if (before > 0) {
    windowsChanged(*position, "Stopped ", before);
    return about(*position);
  }
  ControlResponse response = about(*position);
  response.error = workspaces_[*position].name + " has no windows.";
  console_.log("Warned: " + *response.error);
  return response;
}

ControlResponse Application::refusal(std::string_view command, const std::string& why) {
  console_.log("Refused " + std::string(command) + ": " + why);
  return ControlResponse::failure(why);
}

ControlResponse Application::about(std::size_t position) const {
  ControlResponse response = accepted();
  response.workspace = workspaces_[position];
  return response;
}

void Application::windowsChanged(std::size_t position, std::string_view verb, std::int64_t before) {
  const WorkspaceSummary& workspace = workspaces_[position];
  console_.log(std::string(verb) + workspace.name + ": " + counted(workspace.windows, "window") +
               " instead of " + std::to_string(before) + ".");
  // Who follows the current workspace shows its window count; there is no event for another's.
  if (workspace.active) clients_.publish({ControlEvent::Kind::workspace, workspace});
}

void Application::notify(ConnectionID connection, const ControlRequest& request) {
  if (request.activity) {
    progress(request);
  } else if (request.permission) {
    permission(connection, request);
    return;
  } else if (request.kind) {
    attend(request);
  } else {
    clients_.answer(connection,
                    refusal("notify", "notify needs a kind, an activity or a permission."));
    return;
  }
  clients_.answer(connection, accepted());
}

void Application::progress(const ControlRequest& request) {
  const std::string session = sessionOf(request);
  const std::string line = agentOf(request) + " works in " + placeOf(request);
  switch (*request.activity) {
    case AgentActivity::started: {
      turns_.start(session);
      const std::string task = wordsOf(request.task.value_or(""));
      console_.log(task.empty() ? line + "." : line + ": " + task);
      clearMarksOf(request);  // whoever starts a turn has seen what the agent wanted
      break;
    }
    case AgentActivity::working:
      if (turns_.work(session)) console_.log(line + ".");
      settleElsewhere(request);
      break;
    case AgentActivity::ended:
      turns_.end(session);
      console_.log(agentOf(request) + " has ended in " + placeOf(request) + ".");
      sessionEnded(request);
      break;
  }
}

void Application::attend(const ControlRequest& request) {
  const Attention attention = attentionOf(request);
  logAttention(request, attention);
  const std::string session = sessionOf(request);
  // While a card waits its mark says best what is wanted, whatever ends beside it. An agent that
  // asks by itself says again that it does, in fewer words.
  const auto position = workspaces_.holding(request.cwd.value_or(""));
  const auto marked = position ? cardMarks_.find(*position) : cardMarks_.end();
  const bool asksByItself = attention.kind == AttentionKind::needsInput &&
                            marked != cardMarks_.end() && marked->second.session == session;
  if (!asks(session) && !asksByItself) mark(attention, std::nullopt);
}

void Application::logAttention(const ControlRequest& request, const Attention& attention) {
  // The phrase of a mark without an agent is the bare ending.
  std::string line =
      agentOf(request) + Attention{.kind = attention.kind}.phrase() + " in " + placeOf(request);
  if (attention.kind == AttentionKind::done) {
    const auto calls = turns_.end(sessionOf(request));
    if (calls.value_or(0) > 0) {
      line += " (" + counted(static_cast<std::int64_t>(*calls), "tool call") + ")";
    }
  }
  const std::string message = visibleLine(attention.message.value_or(""));
  console_.log(message.empty() ? line + "." : line + ": " + message);
}

void Application::mark(const Attention& attention, const std::optional<CardMark>& card) {
  const auto position = workspaces_.holding(attention.folder.value_or(""));
  if (!position) return;
  workspaces_.mark(*position, attention);
  cardMarks_.erase(*position);
  if (card) cardMarks_.emplace(*position, *card);
  clients_.publish({ControlEvent::Kind::attention, workspaces_[*position]});
}

void Application::clearMark(std::size_t position) {
  cardMarks_.erase(position);
  if (!workspaces_.clearMark(position)) return;
  clients_.publish({ControlEvent::Kind::attention, workspaces_[position]});
}

bool Application::asks(const std::string& session) const {
  return std::ranges::any_of(cards_,
                             [&](const Card& card) { return sessionOf(card.request) == session; });
}

void Application::clearMarksOf(const ControlRequest& request) {
  const std::string session = sessionOf(request);
  for (std::size_t position = 0; position < workspaces_.all().size(); ++position) {
    const auto& marked = workspaces_[position].attention;
    if (!marked) continue;
    const ControlRequest marker{
        .agent = marked->agent, .cwd = marked->folder, .session = marked->session};
    if (sessionOf(marker) != session) continue;
    const auto waiting = std::find_if(cards_.rbegin(), cards_.rend(), [&](const Card& card) {
      return workspaces_.holding(card.request.cwd.value_or("")) == position;
    });
    if (waiting == cards_.rend()) {
      clearMark(position);
    } else if (waiting->mark != marked) {
      mark(waiting->mark, CardMark{sessionOf(waiting->request), callOf(waiting->request)});
    }
  }
}

std::string Application::placeOf(const ControlRequest& request) const {
  const std::string folder = request.cwd.value_or("");
  const auto position = workspaces_.holding(folder);
  if (position) return workspaces_[*position].name;
  if (folder.empty()) return "no folder";
  return visibleStart(DisplayPath::abbreviated(folder, System::homeFolder()), 200) +
         ", which is in no workspace";
}

void Application::permission(ConnectionID connection, const ControlRequest& request) {
  const AgentPermission& card = *request.permission;
  const std::string what = std::string(verb(card.action)) + " " + visibleLine(card.subject, 200);
  Card arrived{connection, request, agentOf(request), what, attentionOf(request)};
  // A call that is asked for again was not the last of its kind: a report that comes now may well
  // be of this one.
  if (const auto call = callOf(request)) std::erase(allowed_, *call);
  if (answering_ == Answering::allow) {
    settle(arrived, automaticReply(card, PermissionAnswer::allowed), " (--answer allow)");
  } else if (answering_ == Answering::deny) {
    settle(arrived, automaticReply(card, PermissionAnswer::denied), " (--answer deny)");
  } else {
    logAttention(request, arrived.mark);  // the user has to step in, here or at the agent
    mark(arrived.mark, CardMark{sessionOf(request), callOf(request)});
    if (answering_ == Answering::leave) {
      settle(arrived, std::nullopt, {});
      return;
    }
    cards_.push_back(std::move(arrived));
    if (cards_.size() == 1) {
      showFirst();
    } else {
      console_.log("(" + std::to_string(cards_.size() - 1) + " more waiting.)");
    }
  }
}

void Application::settle(const Card& card, const std::optional<PermissionReply>& reply,
                         std::string_view how) {
  ControlResponse response = accepted();
  std::string outcome = "Left to " + card.agent + ": ";
  if (reply) {
    response.decision = reply->answer;
    response.choices = reply->choices;
    response.approval = reply->approval;
    outcome = std::string(verdict(*reply, card.request.permission->action)).append(how) + ", " +
              card.agent + ": ";
    const auto call = callOf(card.request);
    if (call && reply->answer == PermissionAnswer::allowed) {
      if (allowed_.size() == mostAllowed) allowed_.pop_front();
      allowed_.push_back(*call);
    }
  }
  console_.log(outcome + card.what);
  if (reply) {
    for (const std::string& line : chosenIn(*card.request.permission, *reply)) console_.log(line);
  }
  clients_.answer(card.connection, response);
}

Application::Card Application::removed(std::size_t index) {
  const auto place = cards_.begin() + static_cast<std::ptrdiff_t>(index);
  Card card = std::move(*place);
  cards_.erase(place);
  if (index == 0) {
    dialog_.reset();
    console_.stopAsking();
  }
  return card;
}

void Application::settleFirst(const std::optional<PermissionReply>& reply) {
  const Card card = removed(0);
  settle(card, reply, {});
  if (reply) clearMarksOf(card.request);
  showFirst();
}

void Application::settleElsewhere(const ControlRequest& report) {
  const auto call = callOf(report);
  // The tool call that was just finished may be one that was allowed here; an equal one that still
  // waits is another then.
  const auto known = call ? std::ranges::find(allowed_, *call) : allowed_.end();
  if (known != allowed_.end()) {
    allowed_.erase(known);
    return;
  }
  const auto isOver = [&](const Card& card) { return call && callOf(card.request) == call; };
  const auto place = std::ranges::find_if(cards_, isOver);
  if (place != cards_.end()) {
    settleWithoutUser(static_cast<std::size_t>(place - cards_.begin()));
    showFirst();
    return;
  }
  // A card that was left to its agent was answered there.
  const auto left = std::ranges::find_if(
      cardMarks_, [&](const auto& entry) { return call && entry.second.call == call; });
  if (left != cardMarks_.end()) clearMark(left->first);
}

void Application::sessionEnded(const ControlRequest& report) {
  if (!report.session) return;
  for (std::size_t index = cards_.size(); index-- > 0;) {
    if (sessionOf(cards_[index].request) == sessionOf(report)) settleWithoutUser(index);
  }
  showFirst();
}

void Application::settleWithoutUser(std::size_t index) {
  const Card card = removed(index);
  console_.log("Settled without you, " + card.agent + ": " + card.what);
  clearMarksOf(card.request);
  clients_.answer(card.connection, accepted());
}

void Application::disconnected(ConnectionID connection) {
  const auto place = std::ranges::find(cards_, connection, &Card::connection);
  if (place == cards_.end()) return;
  const Card card = removed(static_cast<std::size_t>(place - cards_.begin()));
  console_.log("Withdrawn by " + card.agent + ": " + card.what);
  clearMarksOf(card.request);
  showFirst();
}

void Application::showFirst() {
  if (cards_.empty() || dialog_) return;
  dialog_.emplace(*cards_.front().request.permission);
  console_.ask(drawnFirst());
}

std::string Application::drawnFirst() {
  const Card& card = cards_.front();
  const auto position = workspaces_.holding(card.request.cwd.value_or(""));
  drawnStyle_ = console_.style();
  return draw(*dialog_, card.agent, position ? workspaces_[*position].name : "", cards_.size() - 1,
              drawnStyle_);
}

void Application::windowChanged() {
  if (!dialog_) return;
  const Style now = console_.style();
  const bool hasFewerRows = now.rows.value_or(0) < drawnStyle_.rows.value_or(0);
  if (now.columns < drawnStyle_.columns || hasFewerRows) console_.askAgain(drawnFirst());
}

void Application::typed(const TypedLine& line) {
  if (!dialog_) {
    console_.log("Nothing waits for an answer.");
    return;
  }
  if (line.tooEarly) {
    console_.sayDropped();
    return;
  }
  const CardDialog::Outcome outcome = dialog_->typed(line.text);
  if (const auto* decision = std::get_if<CardDialog::Decided>(&outcome)) {
    settleFirst(decision->reply);
  } else if (std::holds_alternative<CardDialog::LeftToAgent>(outcome)) {
    settleFirst(std::nullopt);
  } else if (const auto* hint = std::get_if<CardDialog::Hint>(&outcome)) {
    console_.say(hint->text);
  } else {
    console_.ask(drawnFirst());
  }
}

void Application::inputEnded() {
  answering_ = Answering::leave;
  console_.closeInput();
  console_.log("End of input: agents that ask for permission ask by themselves from now on.");
  while (!cards_.empty()) settle(removed(0), std::nullopt, {});
}

}  // namespace CorvaneControl::Headless
