// Counts insertions, deletions, replacements and swaps of neighbours as one
// change each.
#include "CommandLine/NearWord.h"

#include <algorithm>
#include <map>

namespace kw {
namespace {

std::size_t changesBetween(std::string_view left, std::string_view right) {
  std::vector<std::vector<std::size_t>> changes(left.size() + 1,
                                                std::vector<std::size_t>(right.size() + 1));
  for (std::size_t i = 0; i <= left.size(); ++i)
    for (std::size_t j = 0; j <= right.size(); ++j) {
      if (i == 0 || j == 0) {
        changes[i][j] = i + j;
        continue;
      }
      std::size_t least = std::min({changes[i - 1][j] + 1, changes[i][j - 1] + 1,
                                    changes[i - 1][j - 1] + (left[i - 1] != right[j - 1])});
      if (i > 1 && j > 1 && left[i - 1] == right.at(j - 2) && left.at(i - 2) == right[j - 1])
        least = std::min(least, changes[i - 2][j - 2] + 1);
      changes[i][j] = least;
    }
  return changes[left.size()][right.size()];
}

} // namespace

std::string nearWord(std::string_view given, const std::vector<std::string> &words) {
  constexpr std::size_t longest = 64; // longer words are not mistyped commands
  std::string nearest;
  // A third of the letters may be wrong.
  std::size_t fewest = std::min<std::size_t>(given.size() / 3 + 1, 3) + 1;
  for (const std::string &word : words) {
    std::size_t changes = given.size() > longest ? fewest : changesBetween(given, word);
    // A first letter is seldom wrong: "rmove" is "remove" rather than "move".
    bool startsAlike = !nearest.empty() && changes == fewest && !given.empty() &&
                       word.front() == given.front() && nearest.front() != given.front();
    if ((changes < fewest || startsAlike) && changes < word.size()) {
      fewest = changes;
      nearest = word;
    }
  }
  return nearest;
}

namespace {

// Its name in other programs.
std::string otherName(const std::string &given) {
  static const std::map<std::string, std::string> names{
      {"rm", "remove"},     {"del", "remove"},  {"delete", "remove"}, {"rmdir", "remove"},
      {"unlink", "remove"}, {"du", "size"},     {"ls", "inspect"},    {"stat", "inspect"},
      {"mv", "move"},       {"rename", "move"}, {"wipe", "shred"},    {"srm", "shred"},
      {"search", "find"},   {"locate", "find"}, {"ping", "echo"},     {"quit", "terminate"}};
  auto found = names.find(given);
  return found == names.end() ? "" : found->second;
}

} // namespace

std::string suggestionFor(const std::string &given, const CommandTable &commands) {
  std::vector<std::string> names;
  for (const Command &command : commands)
    names.emplace_back(command.name);
  std::string near = otherName(given);
  if (std::find(names.begin(), names.end(), near) == names.end())
    near = nearWord(given, names);
  std::string all;
  for (const std::string &name : names)
    all += (all.empty() ? "" : ", ") + name;
  return "there is no command \"" + displayable(given) + "\"; " +
         (near.empty() ? "there are: " + all : "did you mean \"" + near + "\"?");
}

} // namespace kw
