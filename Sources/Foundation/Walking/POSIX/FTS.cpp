// Opens walks, with helping threads or without.
#include "Foundation/Walking/FTS.h"

#include "Foundation/Threads/Internal/Processors.h"
#include "Foundation/Walking/POSIX/HierarchyStream.h"

#include <cerrno>

namespace NS {
namespace {

std::unique_ptr<FTSStream> openStream(const std::string &path, int options, const FTSSieve *sieve,
                                      unsigned processors) {
  constexpr int served =
      FTSOption::NOCHDIR | FTSOption::NOSTAT | FTSOption::PHYSICAL | FTSOption::XDEV;
  bool usable = path.find('\0') == std::string::npos && !(options & ~served) &&
                (options & FTSOption::PHYSICAL);
  if (path.empty() || !usable) {
    errno = path.empty() ? ENOENT : EINVAL;
    return nullptr;
  }
  return std::make_unique<HierarchyStream>(path, options, sieve, processors);
}

class FileHierarchies final : public FTS {
public:
  std::unique_ptr<FTSStream> open(const std::string &path, int options) override {
    return openStream(path, options, nullptr, 1);
  }
  std::unique_ptr<FTSStream> openForAll(const std::string &path, int options,
                                        const FTSSieve *sieve) override {
    // Reading ahead would touch volumes that the walk does not enter.
    bool staysOnVolume = (options & FTSOption::XDEV) != 0;
    return openStream(path, options, sieve, staysOnVolume ? 1 : Processors::shared().usable());
  }
};

} // namespace

FTS &FTS::real() {
  return lastingInstance<FileHierarchies>();
}

} // namespace NS
