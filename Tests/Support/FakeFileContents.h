// Whole files in memory, wherever the code under test expects them.
#pragma once

#include "Foundation/Files/FileContents.h"

#include <cerrno>
#include <map>
#include <string>

namespace kwtest {

class FakeFileContents : public NS::FileContents {
public:
  std::map<std::string, std::string> files;
  int readFailure = 0; // an errno value, as is the next
  int writeFailure = 0;
  int writes = 0;

  std::optional<std::string> dataWithContentsOfFile(const std::string &path,
                                                    NS::ErrorSlot error) override {
    auto found = files.find(path);
    if (found != files.end() && readFailure == 0)
      return found->second;
    int failure = readFailure == 0 ? ENOENT : readFailure;
    NS::storeError(error, NS::fileError(failure, path, NS::FileAccess::Reading));
    return std::nullopt;
  }
  bool writeToFileAtomically(const std::string &path, std::string_view data,
                             NS::ErrorSlot error) override {
    ++writes;
    if (writeFailure != 0) {
      NS::storeError(error, NS::fileError(writeFailure, path, NS::FileAccess::Writing));
      return false;
    }
    files[path] = std::string(data);
    return true;
  }
};

} // namespace kwtest
