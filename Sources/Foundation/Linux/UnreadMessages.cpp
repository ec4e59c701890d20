// The arithmetic of what clients leave unread.
#include "Foundation/Linux/UnreadMessages.h"

namespace NS {

bool UnreadMessages::hasRoom(const std::string &client, std::size_t bytes) const {
  return hasRoomBelow(limits_.perClient, client, bytes);
}

bool UnreadMessages::hasRoomForRefusal(const std::string &client, std::size_t bytes) const {
  return hasRoomBelow(limits_.perClientWithRefusals, client, bytes);
}

bool UnreadMessages::hasRoomBelow(std::size_t limit, const std::string &client,
                                  std::size_t bytes) const {
  const std::size_t unread = ofClient(client);
  if (unread + bytes <= limits_.guaranteed)
    return true;
  if (altogether_ + bytes > limits_.altogether)
    return false;
  return unread == 0 || unread + bytes <= limit;
}

void UnreadMessages::sent(const std::string &client, std::size_t bytes) {
  unread_[client] += bytes;
  altogether_ += bytes;
}

void UnreadMessages::measured(const std::string &client, std::size_t bytes) {
  forget(client);
  if (bytes > 0)
    sent(client, bytes);
}

void UnreadMessages::forget(const std::string &client) {
  auto found = unread_.find(client);
  if (found == unread_.end())
    return;
  altogether_ -= found->second;
  unread_.erase(found);
}

std::size_t UnreadMessages::ofClient(const std::string &client) const {
  auto found = unread_.find(client);
  return found == unread_.end() ? 0 : found->second;
}

std::vector<std::string> UnreadMessages::clientsWithMoreThanGuaranteed() const {
  std::vector<std::string> clients;
  for (const auto &[client, bytes] : unread_)
    if (bytes > limits_.guaranteed)
      clients.push_back(client);
  return clients;
}

} // namespace NS
