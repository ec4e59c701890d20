// Digests and Base64, with a transform of our own where a failure is needed.
#include "Additions/NSString+Hashing.h"

#include <gtest/gtest.h>

namespace {

class RecordingTransform final : public NS::Transform {
public:
  bool acceptsInput = true;
  std::optional<std::string> result;
  std::string input;
  int executions = 0;

  bool setAttribute(std::string_view name, std::string_view data) override {
    EXPECT_EQ(name, NS::TransformInputAttributeName);
    input = data;
    return acceptsInput;
  }
  std::optional<std::string> execute() override {
    ++executions;
    return result;
  }
};

TEST(MD5Hash, isThirtyTwoLowerCaseDigits) {
  EXPECT_EQ(kw::md5Hash(""), "d41d8cd98f00b204e9800998ecf8427e");
  EXPECT_EQ(kw::md5Hash("abc"), "900150983cd24fb0d6963f7d28e17f72");
  EXPECT_EQ(kw::md5Hash("message digest"), "f96b697d7cb7938d525a2f31aaf161d0");
  EXPECT_EQ(kw::md5Hash("\xff").size(), 32u);
}

TEST(Base64Helper, givesNothingWithoutATransform) {
  EXPECT_EQ(kw::base64helper("data", nullptr), std::nullopt);
}

TEST(Base64Helper, givesTheResultOfTheTransform) {
  RecordingTransform transform;
  transform.result.emplace("made");
  EXPECT_EQ(kw::base64helper("data", &transform), "made");
  EXPECT_EQ(transform.input, "data");
}

TEST(Base64Helper, doesNotExecuteATransformThatRefusesItsInput) {
  RecordingTransform transform;
  transform.acceptsInput = false;
  EXPECT_EQ(kw::base64helper("data", &transform), std::nullopt);
  EXPECT_EQ(transform.executions, 0);
}

TEST(Base64Helper, givesNothingWhenTheTransformFails) {
  RecordingTransform transform;
  EXPECT_EQ(kw::base64helper("data", &transform), std::nullopt);
  EXPECT_EQ(transform.executions, 1);
}

TEST(Base64, encodesInOneLine) {
  EXPECT_EQ(kw::base64enc(""), "");
  EXPECT_EQ(kw::base64enc("f"), "Zg==");
  EXPECT_EQ(kw::base64enc("fo"), "Zm8=");
  EXPECT_EQ(kw::base64enc("foo"), "Zm9v");
  EXPECT_EQ(kw::base64enc(std::string_view("\0\xff\xfe", 3)), "AP/+");
  EXPECT_EQ(kw::base64enc(std::string(300, 'x'))->find('\n'), std::string::npos);
}

TEST(Base64, decodesItsOwnEncoding) {
  std::string data;
  for (int length = 0; length < 300; ++length) {
    EXPECT_EQ(kw::base64dec(*kw::base64enc(data)), data);
    data += static_cast<char>(length);
  }
}

TEST(Base64, refusesTextThatIsNotBase64) {
  for (const char *text : {"Zg", "Zg=", "Z===", "====", "Zg==Zg==", "Zm9v!", "Zm9\n", "Zm 9",
                           "Zm9v\n", "Zm=v", "Zm9-", "é==="})
    EXPECT_EQ(kw::base64dec(text), std::nullopt) << text;
  EXPECT_EQ(kw::base64dec(std::string_view("Zm\0v", 4)), std::nullopt);
}

TEST(Transform, isKnownForBase64Only) {
  EXPECT_EQ(NS::Transform::encodeTransform("base32"), nullptr);
  EXPECT_EQ(NS::Transform::decodeTransform(""), nullptr);
}

TEST(Transform, takesAnInputAndNothingElse) {
  auto transform = NS::Transform::encodeTransform(NS::Base64Encoding);
  EXPECT_FALSE(transform->setAttribute("OUTPUT", "x"));
  EXPECT_EQ(transform->execute(), std::nullopt) << "there is no input yet";
  EXPECT_TRUE(transform->setAttribute(NS::TransformInputAttributeName, "foo"));
  EXPECT_EQ(transform->execute(), "Zm9v");
}

} // namespace
