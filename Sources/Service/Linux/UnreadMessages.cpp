// The arithmetic of the clients' unread messages.
#include "Service/Linux/UnreadMessages.h"

#include <algorithm>

namespace NS {

UnreadLimits UnreadLimits::forAccountsOfUsers() {
  UnreadLimits limits;
  limits.perClientWithShort = limits.altogether = std::size_t{160} << 20;
  limits.altogetherForReaders = std::size_t{240} << 20;
  return limits;
}

void UnreadMessages::setLimits(const UnreadLimits &limits) {
  limits_ = limits;
  altogether_ = 0;
  for (const auto &[client, account] : accounts_)
    altogether_ += weight(account.unread);
}

const UnreadMessages::Account *UnreadMessages::find(std::string_view client) const {
  auto found = accounts_.find(client);
  return found == accounts_.end() ? nullptr : &found->second;
}

std::size_t UnreadMessages::ofClient(std::string_view client) const {
  const Account *account = find(client);
  return account ? account->unread : 0;
}

bool UnreadMessages::hasShownThatItReads(std::string_view client) const {
  const Account *account = find(client);
  return account && account->read >= limits_.proof;
}

UnreadMessages::Room UnreadMessages::roomFor(std::string_view client, std::size_t bytes,
                                             Kind kind) const {
  std::size_t unread = ofClient(client);
  bytes += limits_.perMessage;
  if (unread + bytes <= limits_.guaranteed)
    return Room::Enough;
  std::size_t limit = kind == Kind::Short ? limits_.perClientWithShort : limits_.perClient;
  if (unread > 0 && unread + bytes > limit)
    return Room::None;
  if (altogether_ + bytes <= limits_.altogether)
    return Room::Enough;
  if (!hasShownThatItReads(client))
    return Room::Unknown;
  std::size_t spared = unread > 0 ? limits_.reserve : 0;
  return altogether_ + bytes + spared <= limits_.altogetherForReaders ? Room::Enough : Room::None;
}

bool UnreadMessages::mayTry(std::string_view client) const {
  return ofClient(client) == 0 &&
         altogether_ + limits_.proof + limits_.reserve <= limits_.altogetherForReaders;
}

// Bytes that fit into the sockets do not count.
std::size_t UnreadMessages::weight(std::size_t unread) const {
  return unread > limits_.guaranteed ? unread : 0;
}

void UnreadMessages::setUnread(Account &account, std::size_t unread) {
  altogether_ -= weight(account.unread);
  account.unread = unread;
  altogether_ += weight(account.unread);
}

void UnreadMessages::sent(const std::string &client, std::size_t bytes) {
  Account &account = accounts_[client];
  std::size_t counted = bytes + limits_.perMessage;
  setUnread(account, account.unread + counted);
  account.sentAltogether += bytes;
  if (account.isAsked)
    account.sinceQuestion += counted;
}

bool UnreadMessages::isWorthAsking(const Account &account) const {
  if (account.isAsked || account.unread <= limits_.guaranteed)
    return false;
  return account.unread > limits_.perClient / 2 || altogether_ > limits_.altogether / 2;
}

bool UnreadMessages::isWorthAsking(std::string_view client) const {
  const Account *account = find(client);
  return account && isWorthAsking(*account);
}

std::vector<std::string> UnreadMessages::worthAsking() const {
  std::vector<std::string> clients;
  for (const auto &[client, account] : accounts_)
    if (isWorthAsking(account))
      clients.push_back(client);
  return clients;
}

bool UnreadMessages::isAsked(std::string_view client) const {
  const Account *account = find(client);
  return account && account->isAsked;
}

void UnreadMessages::asked(const std::string &client) {
  Account &account = accounts_[client];
  account.isAsked = true;
  account.sinceQuestion = 0;
}

void UnreadMessages::measured(const std::string &client, std::size_t bytes) {
  auto found = accounts_.find(client);
  if (found == accounts_.end())
    return;
  Account &account = found->second;
  account.isAsked = false;
  // The agent does not count messages of other senders.
  setUnread(account, std::min(bytes + account.sinceQuestion, account.unread));
  if (account.sentAltogether > account.unread)
    account.read = std::max(account.read, account.sentAltogether - account.unread);
}

void UnreadMessages::notMeasured(std::string_view client) {
  if (auto found = accounts_.find(client); found != accounts_.end())
    found->second.isAsked = false;
}

void UnreadMessages::forget(std::string_view client) {
  auto found = accounts_.find(client);
  if (found == accounts_.end())
    return;
  setUnread(found->second, 0);
  accounts_.erase(found);
}

} // namespace NS
