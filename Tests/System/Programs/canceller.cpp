// Removes a tree through libkeepwell, and cancels the removal when a line comes
// on standard input. Prints its outcome.
// Usage: canceller BUS PATH end|stay (whether the removal ends or stays when
// this program goes away)
#include "Client/Client.h"

#include <exception>
#include <iostream>
#include <string>
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
  try {
    kw::ClientOptions options;
    options.endRequestsOnLeaving = std::string_view(argv[3]) == "end";
    auto client = kw::Client::connect(argv[1], options);
    auto removal = client->removeItemAtPathAsync(argv[2]);
    std::string line;
    if (std::getline(std::cin, line))
      client->cancelAll();
    std::cout << outcomeOf(removal) << '\n';
  } catch (const std::exception &error) {
    std::cout << error.what() << '\n';
    return 1;
  }
  return 0;
}
