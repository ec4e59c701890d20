// The full-screen view of a tree: moving in and out of its folders, and actions
// on the marked ones.
#pragma once

#include "CommandLine/AgentAdvance.h"
#include "CommandLine/BrowserList.h"
#include "CommandLine/Outcome.h"
#include "CommandLine/RemovalPreview.h"
#include "CommandLine/Session.h"
#include "Foundation/Terminal/Screen.h"

#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace kw {

class Browser {
public:
  Browser(Session &session, NS::Screen &screen) : session_(session), screen_(screen) {}

  // Measures the tree and shows it until the person leaves. Returns the
  // exit status.
  int browse(const std::string &path);

private:
  // An action on the chosen items.
  struct Deed {
    const char *verb;       // "Remove"
    const char *participle; // "removed"
    // One of the two requests.
    Request<FlagReply> (Client::*ask)(const std::string &, const RequestOptions &) = nullptr;
    Request<RemovalReply> (Client::*askRemoval)(const std::string &,
                                                const RequestOptions &) = nullptr;
    bool usesTrash = false; // which is tried without the agent first
  };

  std::optional<MeasuredTree> measure(const std::string &path);
  std::optional<std::uint64_t> measureByAgent(const std::string &path);
  void showMeasuring(const RequestProgress &progress);
  bool lookForStop();
  bool takeTurnToShow();

  void run();
  bool handle(char32_t key); // returns whether to go on
  bool handleMove(char32_t key);
  void handleView(char32_t key);
  void handleDeed(char32_t key);
  void search();
  void showKeys();
  void refresh(const std::string &path);

  void draw();
  std::string title() const;
  std::string lineOf(const MeasuredItem &item, std::uint64_t whole) const;
  void drawStatus(const std::string &text);
  std::optional<std::string> typed(const std::string &question);
  std::optional<RemovalSum> planned(const std::vector<std::string> &paths);
  bool isConfirmed(const Deed &deed, const std::vector<std::string> &paths);
  void perform(const Deed &deed);
  std::string performOn(const Deed &deed, const std::string &path);
  template <typename Reply> Told awaited(const Request<Reply> &request, AgentAdvance &advance);

  int listHeight() const { return std::max(screen_.rows() - 3, 1); }

  Session &session_;
  NS::Screen &screen_;
  std::unique_ptr<BrowserList> list_;
  std::string root_;
  std::string message_;
  std::string lastSearch_;
  std::size_t firstLine_ = 0;
  bool isStopWished_ = false;
  bool agentIsAbsent_ = false;
  std::chrono::steady_clock::time_point lastShown_;
};

} // namespace kw
