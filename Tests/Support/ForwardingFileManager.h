// A file manager that hands every call on to another, so that a test overrides
// only the call that it wants to watch or to fail.
#pragma once

#include "Foundation/Trees/FileManager.h"

namespace kwtest {

class ForwardingFileManager : public NS::FileManager {
public:
  explicit ForwardingFileManager(NS::FileManager &real = NS::FileManager::defaultManager())
      : real_(real) {}

  bool fileExistsAtPath(const std::string &path) override { return real_.fileExistsAtPath(path); }
  bool fileExistsAtPath(const std::string &path, bool &isDirectory) override {
    return real_.fileExistsAtPath(path, isDirectory);
  }
  bool isReadableFileAtPath(const std::string &path) override {
    return real_.isReadableFileAtPath(path);
  }
  bool isExecutableFileAtPath(const std::string &path) override {
    return real_.isExecutableFileAtPath(path);
  }
  std::optional<std::vector<std::string>> contentsOfDirectoryAtPath(const std::string &path,
                                                                    NS::ErrorSlot error) override {
    return real_.contentsOfDirectoryAtPath(path, error);
  }
  std::optional<std::vector<NS::URL>>
  contentsOfDirectoryAtURL(const NS::URL &url, NS::DirectoryEnumerationOptions options,
                           NS::ErrorSlot error) override {
    return real_.contentsOfDirectoryAtURL(url, options, error);
  }
  std::unique_ptr<NS::PathEnumerator> enumeratorAtPath(const std::string &path) override {
    return real_.enumeratorAtPath(path);
  }
  std::unique_ptr<NS::URLEnumerator>
  enumeratorAtURL(const NS::URL &url, NS::DirectoryEnumerationOptions options) override {
    return real_.enumeratorAtURL(url, options);
  }
  std::optional<NS::FileAttributes> attributesOfItemAtPath(const std::string &path,
                                                           NS::ErrorSlot error) override {
    return real_.attributesOfItemAtPath(path, error);
  }
  std::optional<std::string> destinationOfSymbolicLinkAtPath(const std::string &path,
                                                             NS::ErrorSlot error) override {
    return real_.destinationOfSymbolicLinkAtPath(path, error);
  }
  bool removeItemAtPath(const std::string &path, NS::ErrorSlot error) override {
    return real_.removeItemAtPath(path, error);
  }
  bool removeItemAtURL(const NS::URL &url, NS::ErrorSlot error) override {
    return real_.removeItemAtURL(url, error);
  }
  bool moveItemAtPath(const std::string &srcPath, const std::string &dstPath,
                      NS::ErrorSlot error) override {
    return real_.moveItemAtPath(srcPath, dstPath, error);
  }
  bool moveItemAtURL(const NS::URL &srcURL, const NS::URL &dstURL, NS::ErrorSlot error) override {
    return real_.moveItemAtURL(srcURL, dstURL, error);
  }
  bool copyItemAtPath(const std::string &srcPath, const std::string &dstPath,
                      NS::ErrorSlot error) override {
    return real_.copyItemAtPath(srcPath, dstPath, error);
  }
  bool createDirectoryAtPath(const std::string &path, bool withIntermediateDirectories,
                             NS::ErrorSlot error) override {
    return real_.createDirectoryAtPath(path, withIntermediateDirectories, error);
  }
  bool createDirectoryAtURL(const NS::URL &url, bool withIntermediateDirectories,
                            NS::ErrorSlot error) override {
    return real_.createDirectoryAtURL(url, withIntermediateDirectories, error);
  }
  bool trashItemAtURL(const NS::URL &url, NS::ErrorSlot error) override {
    return real_.trashItemAtURL(url, error);
  }

private:
  NS::FileManager &real_;
};

} // namespace kwtest
