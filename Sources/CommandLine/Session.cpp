// Connects to the agent at the first use, and writes text or JSON.
#include "CommandLine/Session.h"

#include "Foundation/Base/SaturatedTime.h"

#include <filesystem>
#include <ostream>
#include <utility>
#include <variant>

namespace kw {
namespace {

const char *nameOfKind(ClientError::Kind kind) {
  switch (kind) {
  case ClientError::Kind::Unreachable:
    return "unreachable";
  case ClientError::Kind::Interrupted:
    return "interrupted";
  case ClientError::Kind::Refused:
    return "refused";
  case ClientError::Kind::BadReply:
    return "reply";
  case ClientError::Kind::BadArgument:
    return "argument";
  case ClientError::Kind::DeadlinePassed:
    return "deadline";
  case ClientError::Kind::Cancelled:
    return "cancelled";
  }
  return "";
}

std::vector<std::string> linesOf(std::string_view text) {
  std::vector<std::string> lines;
  for (std::size_t end; (end = text.find('\n')) != text.npos; text.remove_prefix(end + 1))
    lines.emplace_back(text.substr(0, end));
  if (!text.empty())
    lines.emplace_back(text);
  return lines;
}

} // namespace

Session::Session(const Surroundings &surroundings, const GlobalOptions &options)
    : surroundings_(surroundings), options_(options),
      alarm_(surroundings.alarm ? surroundings.alarm : std::make_shared<Alarm>()),
      advance_(std::make_shared<AgentAdvance>(alarm_)) {}

Client &Session::agent() {
  if (agent_)
    return *agent_;
  if (connectFailure_)
    throw ClientError(*connectFailure_);
  try {
    agent_ = surroundings_.connect(options_.bus, clientOptions());
  } catch (const ClientError &error) {
    connectFailure_ = error;
    throw;
  }
  return *agent_;
}

std::optional<std::chrono::milliseconds> Session::timeLimit() const {
  if (!options_.timeout)
    return std::nullopt;
  using Seconds = std::chrono::duration<double>;
  return NS::saturatedCast<std::chrono::milliseconds>(Seconds(*options_.timeout));
}

ClientOptions Session::clientOptions() const {
  ClientOptions options;
  options.connectTimeLimit = timeLimit();
  options.keepConnecting = [alarm = alarm_] { return alarm->stopSignal() == 0; };
  options.endRequestsOnLeaving = true; // the work must end when the command is killed
  return options;
}

RequestOptions Session::requestOptions() const {
  RequestOptions options;
  options.timeLimit = timeLimit();
  if (showsProgress())
    options.progress = [advance = advance_](const RequestProgress &progress) {
      advance->set(progress);
    };
  return options;
}

void Session::waitUntil(const std::function<bool()> &condition, News *news) {
  flush();
  for (;;) {
    alarm_->waitUntil(
        [&] { return condition() || advance_->isNew() || (news != nullptr && news->isNew()); });
    auto progress = advance_->take();
    bool isMet = condition();
    if (news != nullptr)
      news->show();
    if (isMet)
      return;
    if (progress)
      showAdvance(*progress);
  }
}

void Session::showAdvance(const RequestProgress &progress) {
  showProgress(advanceInWords(progressOfPaths_, progress, rate_.of(progress, now())));
}

void Session::tellStopping() {
  if (surroundings_.errIsTerminal && !options_.quiet)
    note("Stopping; ^C again leaves at once.");
}

bool Session::showsProgress() const {
  return surroundings_.errIsTerminal && surroundings_.canErase && !options_.quiet && !options_.json;
}

std::string Session::forOut(std::string_view text) const {
  return surroundings_.outIsTerminal ? displayable(text) : std::string(text);
}

std::string Session::forErr(std::string_view text) const {
  return surroundings_.errIsTerminal ? displayable(text) : std::string(text);
}

void Session::say(const std::string &line) {
  if (options_.json || options_.quiet)
    return;
  beginLine();
  *surroundings_.out << forOut(line) << lineEnd_;
}

void Session::say(const std::string &left, const std::string &right) {
  if (options_.json || options_.quiet)
    return;
  beginLine();
  *surroundings_.out << forOut(left) << '\t' << forOut(right) << lineEnd_;
}

void Session::sayLines(std::string_view text) {
  for (const std::string &line : linesOf(text))
    say(line);
}

void Session::complainLines(std::string_view text) {
  for (const std::string &line : linesOf(text))
    complain(line);
}

void Session::sayJSON(const JSONObject &object) {
  if (!options_.quiet)
    sayFailure(object);
}

void Session::sayFailure(const JSONObject &object) {
  if (options_.json)
    *surroundings_.out << object.text() << '\n';
}

void Session::show(std::string_view text) {
  if (options_.json || options_.quiet || !surroundings_.outIsTerminal || text.empty())
    return;
  endProgress();
  // Line by line, since line ends are the one control character to send.
  for (std::size_t end; (end = text.find('\n')) != text.npos; text.remove_prefix(end + 1))
    *surroundings_.out << displayable(text.substr(0, end)) << '\n';
  *surroundings_.out << displayable(text) << std::flush;
  lineIsOpen_ = !text.empty();
}

// Both streams may be one terminal, where the order counts.
void Session::complain(const std::string &line) {
  if (options_.json)
    return;
  flush();
  beginLine();
  bool coloured = surroundings_.wantsColours && surroundings_.errIsTerminal;
  *surroundings_.err << (coloured ? "\x1b[1;31mkeepwell:\x1b[0m " : "keepwell: ") << forErr(line)
                     << std::endl;
}

void Session::note(const std::string &line) {
  if (options_.json)
    return;
  flush();
  beginLine();
  *surroundings_.err << forErr(line) << std::endl;
}

void Session::showProgress(const std::string &line) {
  constexpr std::chrono::milliseconds pause{100};
  if (!showsProgress() || lineIsOpen_)
    return;
  auto now = surroundings_.now();
  if (now - lastProgress_ < pause)
    return;
  lastProgress_ = now;
  flush();
  *surroundings_.err << "\r\x1b[K" << line << std::flush;
  progressIsShown_ = true;
}

void Session::endProgress() {
  if (std::exchange(progressIsShown_, false))
    *surroundings_.err << "\r\x1b[K" << std::flush;
}

void Session::beginLine() {
  endProgress();
  if (std::exchange(lineIsOpen_, false))
    *surroundings_.out << std::endl;
}

std::optional<std::string> Session::ask(const std::string &question) {
  flush();
  beginLine();
  return surroundings_.ask ? surroundings_.ask(question) : std::nullopt;
}

void Session::confirm(const std::string &question, bool assumeYes,
                      const std::vector<std::string> &lines) {
  if (!canAsk(assumeYes))
    return;
  std::string text;
  for (const std::string &line : lines)
    text += displayable(line) + "\n";
  std::optional<std::string> answer = ask(text + displayable(question) + " [y/N] ");
  if (!answer)
    return;
  for (const char *yes : {"y", "Y", "yes", "Yes", "YES"})
    if (*answer == yes)
      return;
  throw NotConfirmed();
}

void Session::confirmTyped(const std::string &question, const std::string &text) {
  std::optional<std::string> answer = ask(displayable(question));
  if (!answer)
    throw NotConfirmed("a protected folder needs a confirmation on a terminal, and there is none; "
                       "nothing was done");
  if (*answer != displayable(text))
    throw NotConfirmed();
}

void Session::flush() {
  surroundings_.out->flush();
}

std::string absolutePath(const std::string &path) {
  std::error_code failure;
  auto whole = std::filesystem::absolute(path, failure);
  if (failure)
    throw UsageError("the current folder cannot be found any more; give absolute paths");
  return whole.string();
}

JSONObject jsonOfError(const NS::Error &error) {
  JSONObject info;
  for (const auto &[key, value] : error.userInfo())
    std::visit([&info, &key = key](const auto &held) { info.add(key, held); }, value);
  JSONObject object;
  object.add("kind", "failed")
      .add("domain", error.domain())
      .add("code", error.code())
      .add("description", error.localizedDescription())
      .add("userInfo", info);
  if (const NS::Error *underlying = error.underlyingError())
    object.add("underlying", jsonOfError(*underlying));
  return object;
}

JSONObject jsonOfReason(const std::string &reason, const char *kind) {
  return JSONObject().add("kind", kind).add("description", reason);
}

JSONObject jsonOfError(const ClientError &error) {
  return JSONObject()
      .add("kind", nameOfKind(error.kind()))
      .add("name", error.name())
      .add("description", error.what());
}

} // namespace kw
