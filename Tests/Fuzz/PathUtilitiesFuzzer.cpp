// Two paths, a line each: taken apart and put together again.
#include "Foundation/Files/URL.h"
#include "Foundation/Text/PathUtilities.h"
#include "Support/FuzzInput.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size) {
  auto [path, other] = kwtest::firstLineAndRest(kwtest::fuzzText(data, size));
  std::string last = NS::lastPathComponent(path);
  std::string parent = NS::stringByDeletingLastPathComponent(path);
  kwtest::require(last == "/" || last.find('/') == std::string::npos, "a component has no slash");
  kwtest::require(parent.size() <= path.size(), "a parent is no longer than its child");
  kwtest::require(parent == NS::stringByDeletingLastPathComponent(std::string(path)),
                  "the same question has the same answer");
  std::string joined = NS::stringByAppendingPathComponent(path, last);
  if (!last.empty() && last != "/")
    kwtest::require(NS::lastPathComponent(joined) == last, "what was appended is the last");
  std::string bare = NS::stringByDeletingPathExtension(path);
  kwtest::require(bare.size() <= path.size(), "without its extension a path is no longer");
  std::string extension = NS::pathExtension(path);
  kwtest::require(extension.find('/') == std::string::npos, "an extension has no slash");
  static_cast<void>(NS::stringByAppendingPathExtension(path, other));
  static_cast<void>(NS::stringByAppendingPathComponent(path, other));
  for (bool isDirectory : {false, true}) {
    NS::URL url = NS::URL::fileURLWithPath(path, isDirectory);
    for (char letter : url.absoluteString())
      kwtest::require(letter > 0x20 && letter < 0x7f, "a URL is of visible ASCII");
    kwtest::require(NS::URL::fileURLWithPath(url.path(), url.hasDirectoryPath()) == url,
                    "a URL's path makes it again");
  }
  return 0;
}
