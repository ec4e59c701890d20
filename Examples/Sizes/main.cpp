// Prints the size of each path, and asks for all of them at once.
// Usage: sizes BUS PATH...     BUS: system, session or a bus address
#include <keepwell/Client.h>

#include <exception>
#include <iostream>
#include <string>
#include <utility>
#include <vector>

namespace {

int printSizes(const std::string &bus, const std::vector<std::string> &paths) {
  auto client = kw::Client::connect(bus);
  std::vector<std::pair<std::string, kw::Request<kw::SizeReply>>> requests;
  requests.reserve(paths.size());
  for (const std::string &path : paths)
    requests.emplace_back(path, client->sizeOfItemAtPathAsync(path));

  int status = 0;
  for (const auto &[path, request] : requests) {
    const kw::Result<kw::SizeReply> &result = request.wait();
    if (const kw::ClientError *error = result.error()) {
      std::cerr << path << ": " << error->what() << '\n';
      status = 1;
    } else if (const auto &failure = result.reply().error) {
      std::cerr << path << ": " << failure->localizedDescription() << '\n';
      status = 1;
    } else {
      std::cout << result.reply().allocatedBytes << '\t' << path << '\n';
    }
  }
  return status;
}

} // namespace

int main(int argc, char **argv) {
  if (argc < 3) {
    std::cerr << "usage: sizes BUS PATH...\n";
    return 2;
  }
  try {
    return printSizes(argv[1], std::vector<std::string>(argv + 2, argv + argc));
  } catch (const std::exception &error) {
    std::cerr << "sizes: " << error.what() << '\n';
    return 3;
  }
}
