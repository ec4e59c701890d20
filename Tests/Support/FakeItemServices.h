// Fakes of a host's knowledge about items besides the file system: attributes,
// registry, aliases, index, standard folders. Each is in force during its life.
#pragma once

#include "Foundation/Base/SharedInstance.h"
#include "Foundation/Desktop/AppKitVersion.h"
#include "Foundation/Desktop/LaunchServices.h"
#include "Foundation/Desktop/Metadata.h"
#include "Foundation/Desktop/StandardFolders.h"
#include "Foundation/Files/ExtendedAttributes.h"
#include "Foundation/Values/Date.h"

#include <algorithm>
#include <cerrno>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace kwtest {

class FakeAppKitVersion final : public NS::AppKitVersion {
public:
  explicit FakeAppKitVersion(double value) : value_(value) {}
  mutable int questions = 0;

  double number() const override {
    ++questions;
    return value_;
  }

private:
  double value_;
  NS::ScopedOverride<NS::AppKitVersion> override_{*this};
};

class FakeExtendedAttributes final : public NS::ExtendedAttributes {
public:
  std::string names;                  // as the call writes them
  std::optional<std::int64_t> size;   // the first call's answer, if not the truth
  std::optional<std::int64_t> length; // and the second
  std::vector<int> options;           // of each call

  std::int64_t listxattr(const std::string &, char *buffer, std::size_t room, int flags) override {
    options.push_back(flags);
    if (!buffer)
      return size.value_or(static_cast<std::int64_t>(names.size()));
    std::copy_n(names.begin(), std::min(room, names.size()), buffer);
    return length.value_or(static_cast<std::int64_t>(std::min(room, names.size())));
  }

private:
  NS::ScopedOverride<NS::ExtendedAttributes> override_{*this};
};

class FakeLaunchServices final : public NS::LaunchServices {
public:
  std::map<std::string, NS::LSItemInfo> items; // all others are unknown
  std::vector<std::uint32_t> requests;

  std::int32_t copyItemInfo(const std::string &path, std::uint32_t requestedInfo,
                            NS::LSItemInfo &info) override {
    requests.push_back(requestedInfo);
    auto found = items.find(path);
    if (found == items.end())
      return NS::LSUnknownError;
    info = found->second;
    return 0;
  }

private:
  NS::ScopedOverride<NS::LaunchServices> override_{*this};
};

class FakeAliases final : public NS::Aliases {
public:
  std::map<std::string, std::string> cloud;
  std::map<std::string, std::string> aliases;

  std::optional<std::string> iCloudAliasPathForPath(const std::string &path) override {
    return find(cloud, path);
  }
  std::optional<std::string> resolveAliasFile(const std::string &path) override {
    return find(aliases, path);
  }

private:
  static std::optional<std::string> find(const std::map<std::string, std::string> &table,
                                         const std::string &path) {
    auto found = table.find(path);
    return found == table.end() ? std::nullopt : std::optional(found->second);
  }
  NS::ScopedOverride<NS::Aliases> override_{*this};
};

// An index that knows every path by the same attributes.
class FakeMetadata final : public NS::MetadataStore {
public:
  bool knowsItems = true;
  std::map<std::string, std::shared_ptr<NS::Object>> attributes;

  std::unique_ptr<NS::MetadataItem> createItem(const std::string &) override {
    return knowsItems ? std::make_unique<Item>(attributes) : nullptr;
  }

private:
  class Item final : public NS::MetadataItem {
  public:
    explicit Item(std::map<std::string, std::shared_ptr<NS::Object>> held)
        : attributes_(std::move(held)) {}
    std::shared_ptr<NS::Object> copyAttribute(const std::string &name) override {
      auto found = attributes_.find(name);
      return found == attributes_.end() ? nullptr : found->second;
    }

  private:
    std::map<std::string, std::shared_ptr<NS::Object>> attributes_;
  };
  NS::ScopedOverride<NS::MetadataStore> override_{*this};
};

class FakeStandardFolders final : public NS::StandardFolders {
public:
  std::vector<std::string> folders;
  std::string temporary;
  // Of the last question.
  NS::SearchPathDirectory directory{};
  NS::SearchPathDomainMask domain{};
  bool expanded = false;

  std::vector<std::string> searchPathForDirectoriesInDomains(NS::SearchPathDirectory kind,
                                                             NS::SearchPathDomainMask mask,
                                                             bool expandTilde) override {
    directory = kind;
    domain = mask;
    expanded = expandTilde;
    return folders;
  }
  std::string temporaryDirectory() override { return temporary; }

private:
  NS::ScopedOverride<NS::StandardFolders> override_{*this};
};

} // namespace kwtest
