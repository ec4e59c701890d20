// Matching by the set of places in the pattern that the text may have reached:
// no pattern takes longer than its length times that of the text.
#include "CommandLine/KeepList.h"

#include "CommandLine/Session.h"

#include <algorithm>
#include <filesystem>

namespace kw {
namespace {

struct Token {
  enum class Kind { Letter, AnyLetter, Set, Run, DeepRun };
  Kind kind = Kind::Letter;
  char letter = 0;
  std::string_view set{}; // between the brackets
  bool isOutside = false;
};

// Takes the token at the front of the pattern. A bracket that is never closed
// is a letter.
Token takeToken(std::string_view &pattern) {
  char first = pattern.front();
  pattern.remove_prefix(1);
  if (first == '?')
    return {.kind = Token::Kind::AnyLetter};
  if (first == '*') {
    bool isDeep = pattern.starts_with('*');
    while (pattern.starts_with('*'))
      pattern.remove_prefix(1);
    return {.kind = isDeep ? Token::Kind::DeepRun : Token::Kind::Run};
  }
  if (first == '[') {
    bool isOutside = pattern.starts_with('!') || pattern.starts_with('^');
    std::size_t start = isOutside ? 1 : 0;
    std::size_t end = pattern.find(']', start + 1); // one at the start is a letter
    if (end != pattern.npos) {
      Token token{.kind = Token::Kind::Set,
                  .set = pattern.substr(start, end - start),
                  .isOutside = isOutside};
      pattern.remove_prefix(end + 1);
      return token;
    }
  }
  if (first == '\\' && !pattern.empty()) {
    first = pattern.front();
    pattern.remove_prefix(1);
  }
  return {.letter = first};
}

bool setHolds(std::string_view set, char letter) {
  auto code = [](char c) { return static_cast<unsigned char>(c); };
  for (std::size_t index = 0; index < set.size(); ++index) {
    if (index + 2 < set.size() && set[index + 1] == '-') {
      if (code(set[index]) <= code(letter) && code(letter) <= code(set[index + 2]))
        return true;
      index += 2;
    } else if (set[index] == letter) {
      return true;
    }
  }
  return false;
}

bool isRun(const Token &token) {
  return token.kind == Token::Kind::Run || token.kind == Token::Kind::DeepRun;
}

bool takes(const Token &token, char letter) {
  switch (token.kind) {
  case Token::Kind::Letter:
    return letter == token.letter;
  case Token::Kind::AnyLetter:
  case Token::Kind::Run:
    return letter != '/';
  case Token::Kind::Set:
    return letter != '/' && setHolds(token.set, letter) != token.isOutside;
  case Token::Kind::DeepRun:
    break;
  }
  return true;
}

// A run may take nothing.
void passRuns(const std::vector<Token> &tokens, std::vector<bool> &places) {
  for (std::size_t index = 0; index < tokens.size(); ++index)
    if (places[index] && isRun(tokens[index]))
      places[index + 1] = true;
}

constexpr std::string_view special = "*?[\\";

std::string escaped(const std::string &text) {
  std::string result;
  for (char letter : text) {
    if (special.find(letter) != special.npos)
      result += '\\';
    result += letter;
  }
  return result;
}

// The same absolute pattern with the links in its plain beginning followed.
std::string throughLinks(const std::string &pattern) {
  std::size_t slash = pattern.rfind('/', pattern.find_first_of(special));
  if (slash == 0)
    return pattern;
  std::error_code ignored;
  auto folder = std::filesystem::weakly_canonical(pattern.substr(0, slash), ignored);
  return ignored ? pattern : escaped(folder.string()) + pattern.substr(slash);
}

} // namespace

bool matchesPattern(std::string_view pattern, std::string_view text) {
  std::vector<Token> tokens;
  while (!pattern.empty())
    tokens.push_back(takeToken(pattern));
  std::vector<bool> places(tokens.size() + 1);
  places[0] = true;
  passRuns(tokens, places);
  for (char letter : text) {
    std::vector<bool> next(tokens.size() + 1);
    for (std::size_t index = 0; index < tokens.size(); ++index)
      if (places[index] && takes(tokens[index], letter))
        next[isRun(tokens[index]) ? index : index + 1] = true;
    passRuns(tokens, next);
    places = std::move(next);
  }
  return places.back();
}

KeepList::KeepList(const std::vector<std::string> &patterns) {
  for (std::string pattern : patterns) {
    while (pattern.size() > 1 && pattern.ends_with('/'))
      pattern.pop_back();
    if (pattern.find('/') == pattern.npos) {
      names_.push_back(pattern);
      continue;
    }
    paths_.push_back(absolutePath(pattern));
    std::string other = throughLinks(paths_.back());
    if (other != paths_.back())
      paths_.push_back(other);
  }
}

bool KeepList::namesPath(std::string_view path) const {
  return std::any_of(paths_.begin(), paths_.end(),
                     [path](const std::string &pattern) { return matchesPattern(pattern, path); });
}

bool KeepList::names(std::string_view path) const {
  std::string_view name = path.substr(path.rfind('/') + 1);
  return std::any_of(
             names_.begin(), names_.end(),
             [name](const std::string &pattern) { return matchesPattern(pattern, name); }) ||
         namesPath(path);
}

bool KeepList::holdsFolderOf(std::string_view path) const {
  for (std::size_t slash; (slash = path.rfind('/')) != path.npos && slash > 0;) {
    path = path.substr(0, slash);
    if (namesPath(path))
      return true;
  }
  return namesPath("/");
}

} // namespace kw
