// The object that the platform's transport calls, against GNUstep: each message
// becomes a request, and its block is called at most once.
#include "Service/macOS/XPCExportedObject.h"

#include "Agent/KWPrivilegedOperation.h"
#include "Agent/KWPrivilegedOperationProgress.h"
#include "Foundation/Base/Progress.h"
#include "Foundation/Base/macOS/Retained.h"
#include "Protocol/macOS/XPCValues.h"

#include <gtest/gtest.h>
#include <objc/runtime.h>
#include <stdexcept>

namespace {

using namespace NS;
using namespace std::string_literals;

struct Exported : XPCObject {};

class XPCExportedObjectTest : public ::testing::Test {
protected:
  ~XPCExportedObjectTest() override { [pool release]; }

  // The contract's interface with every message handled by the same code.
  std::shared_ptr<const XPCInterface> interfaceWith(
      std::function<void(const XPCMethod &, const XPCValues &, const XPCReply &)> handler) {
    auto interface = std::make_shared<XPCInterface>(*kw::KWPrivilegedOperation::interface());
    for (XPCMethod &method : interface->methods) {
      method.succeeded = nullptr; // the journal is not the subject here
      method.invoker = [handler, held = method](XPCObject &, const XPCValues &arguments,
                                                const XPCReply &reply) {
        handler(held, arguments, reply);
      };
    }
    return interface;
  }
  id<KWPrivilegedOperation>
  objectWith(std::function<void(const XPCMethod &, const XPCValues &, const XPCReply &)> handler) {
    return exportedOperations(
        {interfaceWith(std::move(handler)), std::make_shared<Exported>(), nullptr, {}});
  }
  // Counts its calls, and is held by its block alone after the request.
  HeldBlock<KWFlagBlock> countingBlock() {
    auto held = std::make_shared<int>(1);
    block = held;
    KWFlagBlock made = ^(BOOL, NSError *) {
      calls += *held;
    };
    return HeldBlock<KWFlagBlock>(made);
  }

  void drain() {
    [pool release];
    pool = [[NSAutoreleasePool alloc] init];
  }

  NSAutoreleasePool *pool = [[NSAutoreleasePool alloc] init];
  std::weak_ptr<int> block;
  int calls = 0;
};

// Of the object's own method, which the compiler holds equal to the protocol's;
// without the offsets.
std::string encodingOf(id object, const std::string &selector) {
  Method method = class_getInstanceMethod([object class], sel_registerName(selector.c_str()));
  std::string plain;
  for (const char *c = method ? method_getTypeEncoding(method) : ""; *c; ++c)
    if (*c < '0' || *c > '9')
      plain += *c;
  return plain;
}

TEST_F(XPCExportedObjectTest, hasTheContractsMessages) {
  const auto &methods = kw::KWPrivilegedOperation::interface()->methods;
  ASSERT_EQ(methods.size(), 26u);
  id object = objectWith(nullptr);
  for (const XPCMethod &method : methods) {
    std::string expected = "v@:" + std::string(method.arguments.size(), '@');
    if (!method.oneWay)
      expected += "@?";
    EXPECT_EQ(encodingOf(object, method.selector), expected) << method.selector;
  }
}

TEST_F(XPCExportedObjectTest, isExportedByTheInterfacesName) {
  // This runtime does not set up a protocol that no class here has; its name
  // is the word behind its class.
  auto name = [](const XPCInterface &interface) {
    return reinterpret_cast<const char *const *>(protocolOfInterface(interface.name))[1];
  };
  EXPECT_STREQ(name(*kw::KWPrivilegedOperation::interface()), "KWPrivilegedOperation");
  EXPECT_STREQ(name(*kw::KWPrivilegedOperationProgress::interface()),
               "KWPrivilegedOperationProgress");
  EXPECT_EQ(protocolOfInterface("org.example.Other"), nil);
}

// One call of each kind of signature, through the message's own implementation.
class Caller {
public:
  explicit Caller(id<KWPrivilegedOperation> callee)
      : object(static_cast<NSObject<KWPrivilegedOperation> *>(callee)) {}

  int replies = 0; // with the canned values

  void call(const XPCMethod &method) {
    SEL selector = sel_registerName(method.selector.c_str());
    IMP code = [object methodForSelector:selector];
    const void *block = blockFor(method);
    bool hasTexts =
        !method.arguments.empty() && method.arguments.back().kind == XPCKind::StringArray;
    id second = hasTexts ? static_cast<id>([NSArray arrayWithObject:@"b"]) : @"b";
    if (method.arguments.size() == 2)
      reinterpret_cast<void (*)(id, SEL, id, id, const void *)>(code)(object, selector, @"a",
                                                                      second, block);
    else if (method.arguments.size() == 1)
      reinterpret_cast<void (*)(id, SEL, id, const void *)>(code)(object, selector, @"a", block);
    else
      reinterpret_cast<void (*)(id, SEL, const void *)>(code)(object, selector, block);
  }

private:
  // Held until the end.
  template <typename... Arguments> const void *keep(void (^block)(Arguments...)) {
    blocks.emplace_back([held = HeldBlock<void (^)(Arguments...)>(block)] {
      return static_cast<const void *>(held.get());
    });
    return blocks.back()();
  }

  const void *blockFor(const XPCMethod &method) {
    std::vector<XPCKind> kinds;
    for (const XPCParameter &reply : method.replies)
      kinds.push_back(reply.kind);
    using enum XPCKind;
    if (kinds == std::vector{Flag, XPCKind::Error})
      return keep(^(BOOL flag, NSError *error) {
        replies += flag == YES && [error code] == 7;
      });
    if (kinds == std::vector{XPCKind::String, XPCKind::Error})
      return keep(^(NSString *text, NSError *error) {
        replies += [text isEqual:@"t"] && [error code] == 7;
      });
    if (kinds == std::vector{Flag, Int32, XPCKind::String})
      return keep(^(BOOL flag, int value, NSString *text) {
        replies += flag == YES && value == -32 && [text isEqual:@"t"];
      });
    if (kinds == std::vector{XPCKind::String, Int64, XPCKind::String, XPCKind::Error})
      return keep(^(NSString *output, long long status, NSString *errorOutput, NSError *error) {
        replies += [output isEqual:@"t"] && status == -64'000'000'000 &&
                   [errorOutput isEqual:@"t"] && [error code] == 7;
      });
    if (kinds == std::vector{Int64, XPCKind::Error})
      return keep(^(long long size, NSError *error) {
        replies += size == -64'000'000'000 && [error code] == 7;
      });
    EXPECT_TRUE(kinds.empty());
    return nullptr;
  }

  NSObject<KWPrivilegedOperation> *const object;
  std::vector<std::function<const void *()>> blocks;
};

XPCValues cannedReply(const XPCMethod &method) {
  XPCValues values;
  for (const XPCParameter &reply : method.replies)
    switch (reply.kind) {
    case XPCKind::Flag:
      values.emplace_back(true);
      break;
    case XPCKind::Int32:
      values.emplace_back(std::int32_t{-32});
      break;
    case XPCKind::Int64:
      values.emplace_back(std::int64_t{-64'000'000'000});
      break;
    case XPCKind::String:
      values.emplace_back("t"s);
      break;
    default:
      values.emplace_back(NS::Error("d", 7));
    }
  return values;
}

TEST_F(XPCExportedObjectTest, handsEachMessageToItsOwnMethod) {
  std::vector<std::string> handled;
  auto object =
      objectWith([&](const XPCMethod &method, const XPCValues &arguments, const XPCReply &reply) {
        handled.push_back(method.selector);
        ASSERT_EQ(arguments.size(), method.arguments.size());
        if (!arguments.empty()) {
          EXPECT_EQ(std::get<std::string>(arguments[0]), "a") << method.selector;
        }
        if (arguments.size() == 2) {
          const auto *texts = std::get_if<std::vector<std::string>>(&arguments[1]);
          EXPECT_EQ(texts ? texts->at(0) : std::get<std::string>(arguments[1]), "b")
              << method.selector;
        }
        if (!method.oneWay)
          reply.send(cannedReply(method));
      });
  Caller caller(object);
  std::vector<std::string> expected;
  for (const XPCMethod &method : kw::KWPrivilegedOperation::interface()->methods) {
    caller.call(method);
    expected.push_back(method.selector);
  }
  EXPECT_EQ(handled, expected);
  EXPECT_EQ(caller.replies, 25);
}

TEST_F(XPCExportedObjectTest, callsABlockOnceAndLetsItGo) {
  auto object = objectWith([](const XPCMethod &, const XPCValues &, const XPCReply &reply) {
    reply.send({true, {}});
    reply.send({false, {}});
    reply.fail("late");
  });
  [object removeItemAtPath:@"a" withReply:countingBlock().get()];
  EXPECT_EQ(calls, 1);
  drain();
  EXPECT_TRUE(block.expired());
}

TEST_F(XPCExportedObjectTest, letsTheBlockOfAFailedRequestGoUncalled) {
  auto failing = objectWith([](const XPCMethod &, const XPCValues &, const XPCReply &) {
    throw std::runtime_error("no");
  });
  [failing removeItemAtPath:@"a" withReply:countingBlock().get()];
  auto silent = objectWith([](const XPCMethod &, const XPCValues &, const XPCReply &) {});
  [silent removeItemAtPath:@"a" withReply:countingBlock().get()];
  auto empty = exportedOperations({kw::KWPrivilegedOperation::interface(), nullptr, nullptr, {}});
  [empty removeItemAtPath:@"a" withReply:countingBlock().get()];
  auto unknown = exportedOperations(
      {std::make_shared<XPCInterface>(), std::make_shared<Exported>(), nullptr, {}});
  [unknown removeItemAtPath:@"a" withReply:countingBlock().get()];
  EXPECT_EQ(calls, 0);
  drain();
  EXPECT_TRUE(block.expired());
}

TEST_F(XPCExportedObjectTest, takesNoBlockForAnUnwantedReply) {
  int handled = 0;
  auto object = objectWith([&](const XPCMethod &, const XPCValues &, const XPCReply &reply) {
    ++handled;
    reply.send({true, {}});
  });
  [object removeItemAtPath:nil withReply:nil];
  EXPECT_EQ(handled, 1);
}

TEST_F(XPCExportedObjectTest, holdsItsConnectionAndObjectAsLongAsItLives) {
  auto exported = std::make_shared<Exported>();
  std::weak_ptr<Exported> weakly = exported;
  exportedOperations({std::make_shared<XPCInterface>(), std::move(exported), nullptr, {}});
  EXPECT_FALSE(weakly.expired());
  drain();
  EXPECT_TRUE(weakly.expired());
}

// The platform cancels a request's progress with the client's. This library does
// not do that, so the test holds the request's own.
class RequestProgress {
public:
  RequestProgress() : formerly_(method_setImplementation(maker(), reinterpret_cast<IMP>(make))) {}
  ~RequestProgress() {
    method_setImplementation(maker(), formerly_);
    [std::exchange(made, nil) release];
  }

  static inline NSProgress *made = nil;

private:
  static Method maker() {
    return class_getClassMethod([NSProgress class], @selector(progressWithTotalUnitCount:));
  }
  static id make(id, SEL, int64_t count) {
    return made = [[NSProgress discreteProgressWithTotalUnitCount:count] retain];
  }
  const IMP formerly_;
};

TEST_F(XPCExportedObjectTest, cancelsWithThePlatformsProgress) {
  RequestProgress progress;
  std::vector<bool> seen;
  auto object = objectWith([&](const XPCMethod &, const XPCValues &, const XPCReply &) {
    seen.push_back(Progress::current().isCancelled());
    [RequestProgress::made cancel];
    seen.push_back(Progress::current().isCancelled());
  });
  [object removeItemAtPath:@"a" withReply:countingBlock().get()];
  EXPECT_EQ(seen, (std::vector{false, true}));
  EXPECT_FALSE(Progress::current().isCancelled());
  EXPECT_EQ([RequestProgress::made completedUnitCount], 1);
}

} // namespace
