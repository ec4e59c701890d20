// The register of transformers.
#include "Foundation/Values/ValueTransformer.h"

#include <gtest/gtest.h>

namespace {

using NS::ValueTransformer;

class Identity final : public ValueTransformer {
public:
  bool allowsReverseTransformation() const override { return true; }
  std::shared_ptr<NS::Object> transformedValue(const std::shared_ptr<NS::Object> &value) override {
    return value;
  }
  std::shared_ptr<NS::Object>
  reverseTransformedValue(const std::shared_ptr<NS::Object> &value) override {
    return value;
  }
};

TEST(ValueTransformer, hasTheNameUntilAnotherOneOrNoneGetsIt) {
  const std::string name = "ValueTransformerTest";
  auto first = std::make_shared<Identity>(), second = std::make_shared<Identity>();
  EXPECT_EQ(ValueTransformer::valueTransformerForName(name), nullptr);
  ValueTransformer::setValueTransformer(first, name);
  EXPECT_EQ(ValueTransformer::valueTransformerForName(name), first);
  ValueTransformer::setValueTransformer(second, name);
  EXPECT_EQ(ValueTransformer::valueTransformerForName(name), second);
  EXPECT_EQ(first.use_count(), 1);
  ValueTransformer::setValueTransformer(nullptr, name);
  EXPECT_EQ(ValueTransformer::valueTransformerForName(name), nullptr);
  EXPECT_EQ(second.use_count(), 1);
}

} // namespace
