// A main bundle whose string table is the test's.
#pragma once

#include "Foundation/Base/SharedInstance.h"
#include "Foundation/Desktop/Bundle.h"

#include <gtest/gtest.h>

#include <map>
#include <optional>
#include <string>
#include <vector>

namespace kwtest {

class FakeBundle final : public NS::Bundle {
public:
  std::map<std::string, std::string> texts;
  std::vector<std::string> asked; // the keys

  std::string localizedStringForKey(const std::string &key, const std::optional<std::string> &value,
                                    const std::optional<std::string> &table) override {
    EXPECT_EQ(value, "");
    EXPECT_EQ(table, std::nullopt);
    asked.push_back(key);
    auto found = texts.find(key);
    return found == texts.end() ? key : found->second;
  }
  std::optional<std::string> infoString(const std::string &) override { return std::nullopt; }
  std::optional<std::string> executablePath() override { return std::nullopt; }

private:
  NS::ScopedOverride<NS::Bundle> override_{*this};
};

} // namespace kwtest
