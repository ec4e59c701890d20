// Removes a tree through libkeepwell and, at the first news of how far it has
// come, cancels the removal or leaves.
// Usage: canceller BUS PATH cancel|leave|stay
#include "Client/Client.h"

#include <cstdlib>
#include <exception>
#include <iostream>
#include <string_view>

namespace {

const char *outcomeOf(const kw::Request<kw::RemovalReply> &removal) {
  const auto &result = removal.wait();
  if (const kw::ClientError *error = result.error())
    return error->kind() == kw::ClientError::Kind::Cancelled &&
                   error->effect() == kw::ClientError::Effect::Unknown
               ? "cancelled"
               : error->what();
  return result.reply().isDone() ? "removed" : "not removed";
}

} // namespace

int main(int argc, char **argv) {
  if (argc != 4)
    return 2;
  const std::string_view how = argv[3];
  try {
    kw::ClientOptions leaving;
    leaving.endRequestsOnLeaving = how == "leave";
    auto client = kw::Client::connect(argv[1], leaving);
    kw::RequestOptions options;
    options.progress = [&](const kw::RequestProgress &progress) {
      if (progress.items == 0)
        return;
      if (how != "cancel")
        std::_Exit(0);
      client->cancelAll();
    };
    std::cout << outcomeOf(client->removeItemAtPathAsync(argv[2], options)) << '\n';
  } catch (const std::exception &error) {
    std::cout << error.what() << '\n';
    return 1;
  }
  return 0;
}
