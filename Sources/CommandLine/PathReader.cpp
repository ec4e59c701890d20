// The thread reads ahead as far as a bounded queue allows.
#include "CommandLine/PathReader.h"

#include <deque>
#include <thread>
#include <utility>

namespace kw {

struct PathReader::State {
  explicit State(std::shared_ptr<Alarm> toRing) : alarm(std::move(toRing)) {}

  const std::shared_ptr<Alarm> alarm;
  std::mutex mutex{};
  std::condition_variable changed{};
  std::deque<Item> items{};
  bool isAtEnd = false;
  bool isLeft = false;
  std::thread thread{};

  // False when the reader has ended.
  bool put(Item item) {
    {
      std::unique_lock lock(mutex);
      changed.wait(lock, [this] { return isLeft || items.size() < longestQueue; });
      if (isLeft)
        return false;
      items.push_back(std::move(item));
    }
    tell();
    return true;
  }
  void end() {
    {
      std::lock_guard lock(mutex);
      isAtEnd = true;
    }
    tell();
  }
  // The reader has ended.
  void refuse() {
    {
      std::lock_guard lock(mutex);
      isLeft = true;
    }
    changed.notify_all();
  }
  void tell() {
    changed.notify_all();
    alarm->ring();
  }
};

namespace {

PathReader::Item itemFrom(std::string path, bool isEnded) {
  // Its writer may have been stopped in mid-path, and the rest of the path may
  // name another item.
  if (!isEnded)
    return {"", "the last path on standard input is not ended by a NUL and is left alone"};
  if (path.empty())
    return {"", "a path must not be empty"};
  return {std::move(path), nullptr};
}

} // namespace

void PathReader::read(std::istream &input, State &state) {
  for (std::string path; std::getline(input, path, '\0');)
    if (!state.put(itemFrom(path, !input.eof())))
      break;
  if (input.bad()) // a read failed, and the paths so far are not all
    state.put({"", "standard input could not be read to its end"});
  state.end();
}

PathReader::PathReader(std::istream &input, std::shared_ptr<Alarm> alarm)
    : state_(std::make_shared<State>(std::move(alarm))) {
  state_->thread = std::thread([&input, state = state_] { read(input, *state); });
}

PathReader::~PathReader() {
  if (!state_->thread.joinable())
    return;
  state_->refuse();
  state_->thread.join();
}

bool PathReader::isReady() const {
  std::lock_guard lock(state_->mutex);
  return state_->isAtEnd || !state_->items.empty();
}

std::optional<PathReader::Item> PathReader::next() {
  std::unique_lock lock(state_->mutex);
  state_->changed.wait(lock, [this] { return state_->isAtEnd || !state_->items.empty(); });
  if (state_->items.empty())
    return std::nullopt;
  Item item = std::move(state_->items.front());
  state_->items.pop_front();
  lock.unlock();
  state_->changed.notify_all();
  return item;
}

void PathReader::leave() {
  state_->refuse();
  state_->thread.detach();
}

} // namespace kw
