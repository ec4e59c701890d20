// Transforms by the names of their kind and of their input.
#include "Foundation/Text/Transform.h"

#include <gtest/gtest.h>

#include <optional>
#include <string>

namespace {

using NS::Transform;

std::optional<std::string> result(Transform &transform, std::string_view input) {
  EXPECT_TRUE(transform.setAttribute(NS::TransformInputAttributeName, input));
  return transform.execute();
}

TEST(Transform, codesBase64BothWays) {
  EXPECT_EQ(result(*Transform::encodeTransform(NS::Base64Encoding), "foo"), "Zm9v");
  EXPECT_EQ(result(*Transform::decodeTransform(NS::Base64Encoding), "Zm9v"), "foo");
  EXPECT_EQ(result(*Transform::decodeTransform(NS::Base64Encoding), "Zm9"), std::nullopt);
}

TEST(Transform, knowsNoOtherKindAndNoOtherAttribute) {
  EXPECT_EQ(Transform::encodeTransform("other"), nullptr);
  EXPECT_EQ(Transform::decodeTransform("other"), nullptr);
  auto transform = Transform::encodeTransform(NS::Base64Encoding);
  EXPECT_FALSE(transform->setAttribute("other", "foo"));
  EXPECT_EQ(transform->execute(), std::nullopt) << "it has no input";
}

} // namespace
