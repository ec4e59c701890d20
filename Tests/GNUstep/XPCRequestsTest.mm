// A client's requests, against GNUstep: sent straight to the agent's exported
// object, they arrive there as they were meant, and so do their replies.
#include "Protocol/macOS/XPCRequests.h"

#include "Agent/KWPrivilegedOperation.h"
#include "Service/macOS/XPCExportedObject.h"

#include <gtest/gtest.h>

namespace {

using namespace NS;
using namespace std::string_literals;

struct Exported : XPCObject {};

XPCValue sampleOf(XPCKind kind) {
  switch (kind) {
  case XPCKind::Flag:
    return true;
  case XPCKind::Int32:
    return std::int32_t{-32};
  case XPCKind::Int64:
    return std::int64_t{-64'000'000'000};
  case XPCKind::String:
    return "t\xC3\xA4xt"s;
  case XPCKind::StringArray:
    return std::vector{"a"s, ""s};
  case XPCKind::Error:
    break;
  }
  return Error("d", 7);
}

XPCValues samplesOf(const std::vector<XPCParameter> &parameters) {
  XPCValues values;
  for (const XPCParameter &each : parameters)
    values.push_back(sampleOf(each.kind));
  return values;
}

// As text, which can be compared.
std::string textOf(const XPCValues &values) {
  struct Text {
    std::string operator()(std::monostate) const { return "none"; }
    std::string operator()(std::int32_t number) const { return std::to_string(number); }
    std::string operator()(bool flag) const { return flag ? "yes" : "no"; }
    std::string operator()(std::int64_t number) const { return std::to_string(number); }
    std::string operator()(const std::string &text) const { return "\"" + text + "\""; }
    std::string operator()(const std::vector<std::string> &texts) const {
      std::string all;
      for (const std::string &text : texts)
        all += (*this)(text);
      return "[" + all + "]";
    }
    std::string operator()(const Error &error) const {
      return error.domain() + std::to_string(error.code());
    }
  };
  std::string all;
  for (const XPCValue &value : values)
    all += std::visit(Text(), value) + " ";
  return all;
}

class XPCRequestsTest : public ::testing::Test {
protected:
  ~XPCRequestsTest() override { [pool release]; }

  id<KWPrivilegedOperation> agentWith(const XPCValues *answer) {
    auto interface = std::make_shared<XPCInterface>(*kw::KWPrivilegedOperation::interface());
    for (XPCMethod &method : interface->methods) {
      method.succeeded = nullptr;
      method.invoker = [this, answer, selector = method.selector, replies = method.replies](
                           XPCObject &, const XPCValues &arguments, const XPCReply &reply) {
        arrived = selector + " " + textOf(arguments);
        reply.send(answer ? *answer : samplesOf(replies));
      };
    }
    return exportedOperations({interface, std::make_shared<Exported>(), nullptr, {}});
  }
  XPCReplyReceiver receiver() {
    return [this](const XPCValues &values) { replied = textOf(values); };
  }

  NSAutoreleasePool *pool = [[NSAutoreleasePool alloc] init];
  std::string arrived, replied;
};

TEST_F(XPCRequestsTest, arriveWithTheirArgumentsAndAreAnswered) {
  auto agent = agentWith(nullptr);
  for (const XPCMethod &method : kw::KWPrivilegedOperation::interface()->methods) {
    XPCValues arguments = samplesOf(method.arguments);
    arrived = replied = "";
    EXPECT_TRUE(sendRequest(agent, method.member, arguments, receiver())) << method.member;
    EXPECT_EQ(arrived, method.selector + " " + textOf(arguments));
    EXPECT_EQ(replied, textOf(samplesOf(method.replies)));
  }
}

TEST_F(XPCRequestsTest, haveEmptyTextAndNoErrorForNil) {
  XPCValues nothing = {{}, {}};
  sendRequest(agentWith(&nothing), "Echo", {"a"s}, receiver());
  EXPECT_EQ(replied, "\"\" none ");
  XPCValues refusal = {false, {}};
  sendRequest(agentWith(&refusal), "RemoveItemAtPath", {"a"s}, receiver());
  EXPECT_EQ(replied, "no none ");
}

TEST_F(XPCRequestsTest, areNotSentWithArgumentsThatAreNotTheirs) {
  auto agent = agentWith(nullptr);
  EXPECT_FALSE(sendRequest(agent, "Unknown", {}, receiver()));
  EXPECT_FALSE(sendRequest(agent, "Echo", {}, receiver()));
  EXPECT_FALSE(sendRequest(agent, "Echo", {"a"s, "b"s}, receiver()));
  EXPECT_FALSE(sendRequest(agent, "Echo", {true}, receiver()));
  EXPECT_FALSE(sendRequest(agent, "SlimBinaryWithPath", {"a"s, "b"s}, receiver()));
  EXPECT_EQ(arrived, "");
}

TEST_F(XPCRequestsTest, cannotBeSentWithBrokenText) {
  EXPECT_TRUE(canBeSent({"a"s, std::vector{"b"s}}));
  EXPECT_FALSE(canBeSent({"a"s, "\xFF"s}));
  EXPECT_FALSE(canBeSent({"cut\0here"s}));
  EXPECT_FALSE(canBeSent({true}));
  EXPECT_FALSE(canBeSent({std::vector{"b"s, "\xFF"s}}));
}

TEST_F(XPCRequestsTest, receiveProgress) {
  std::string chunks;
  auto client = progressReceiver([&](const std::string &chunk) { chunks += chunk; });
  [client receiveNewOutput:@"one\n"];
  [client receiveNewOutput:nil];
  [client receiveNewOutput:@"two"];
  EXPECT_EQ(chunks, "one\ntwo");
}

} // namespace
