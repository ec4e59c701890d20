// The least that a service can do: answers Echo with the same text and an
// empty error, on the loop's own thread. What the agent's echo is held against.
//
// empty-service BUS-ADDRESS NAME
#include <iostream>
#include <map>
#include <sdbus-c++/sdbus-c++.h>
#include <string>

int main(int argc, char **argv) {
  if (argc != 3) {
    std::cerr << "usage: empty-service BUS-ADDRESS NAME\n";
    return 2;
  }
  using Info = std::map<std::string, sdbus::Variant>;
  using Error = sdbus::Struct<std::string, std::int64_t, Info>;
  auto connection = sdbus::createSessionBusConnectionWithAddress(argv[1]);
  auto object = sdbus::createObject(*connection, "/empty");
  object->registerMethod("Echo")
      .onInterface("org.keepwell.Empty")
      .implementedAs([](const std::string &text) {
        return std::make_tuple(text, Error{"", 0, Info{}});
      });
  object->finishRegistration();
  connection->requestName(argv[2]);
  connection->enterEventLoop();
}
