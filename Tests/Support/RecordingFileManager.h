// A file manager without a file system: a set of existing paths, and a record
// of removals and copies.
#pragma once

#include "Foundation/Trees/FileManager.h"

#include <map>
#include <set>
#include <string>
#include <vector>

namespace kwtest {

class RecordingFileManager : public NS::FileManager {
public:
  std::set<std::string> existing;
  std::set<std::string> executable;
  // Paths whose removal or copy fails, with what errno.
  std::map<std::string, int> failing;
  // "remove /a", "copy /a /b", in the order of the calls.
  std::vector<std::string> calls;

  bool fileExistsAtPath(const std::string &path) override { return existing.contains(path); }
  bool fileExistsAtPath(const std::string &path, bool &isDirectory) override {
    isDirectory = false;
    return fileExistsAtPath(path);
  }
  bool isExecutableFileAtPath(const std::string &path) override {
    return executable.contains(path);
  }
  bool removeItemAtPath(const std::string &path, NS::ErrorSlot error) override {
    calls.push_back("remove " + path);
    if (refuses(path, error))
      return false;
    existing.erase(path);
    return true;
  }
  bool copyItemAtPath(const std::string &srcPath, const std::string &dstPath,
                      NS::ErrorSlot error) override {
    calls.push_back("copy " + srcPath + " " + dstPath);
    if (refuses(srcPath, error))
      return false;
    existing.insert(dstPath);
    return true;
  }

  // The code under test never calls it.
  bool isReadableFileAtPath(const std::string &) override { return false; }
  std::optional<std::vector<std::string>> contentsOfDirectoryAtPath(const std::string &,
                                                                    NS::ErrorSlot) override {
    return std::nullopt;
  }
  std::optional<std::vector<NS::URL>> contentsOfDirectoryAtURL(const NS::URL &,
                                                               NS::DirectoryEnumerationOptions,
                                                               NS::ErrorSlot) override {
    return std::nullopt;
  }
  std::unique_ptr<NS::PathEnumerator> enumeratorAtPath(const std::string &) override {
    return nullptr;
  }
  std::unique_ptr<NS::URLEnumerator> enumeratorAtURL(const NS::URL &,
                                                     NS::DirectoryEnumerationOptions) override {
    return nullptr;
  }
  std::optional<NS::FileAttributes> attributesOfItemAtPath(const std::string &,
                                                           NS::ErrorSlot) override {
    return std::nullopt;
  }
  std::optional<std::string> destinationOfSymbolicLinkAtPath(const std::string &,
                                                             NS::ErrorSlot) override {
    return std::nullopt;
  }
  bool removeItemAtURL(const NS::URL &, NS::ErrorSlot) override { return false; }
  bool moveItemAtPath(const std::string &, const std::string &, NS::ErrorSlot) override {
    return false;
  }
  bool moveItemAtURL(const NS::URL &, const NS::URL &, NS::ErrorSlot) override { return false; }
  bool createDirectoryAtPath(const std::string &, bool, NS::ErrorSlot) override { return false; }
  bool createDirectoryAtURL(const NS::URL &, bool, NS::ErrorSlot) override { return false; }
  bool trashItemAtURL(const NS::URL &, NS::ErrorSlot) override { return false; }

private:
  bool refuses(const std::string &path, NS::ErrorSlot error) const {
    auto found = failing.find(path);
    if (found == failing.end())
      return false;
    NS::storeError(error, NS::fileError(found->second, path, NS::FileAccess::Writing));
    return true;
  }
};

} // namespace kwtest
