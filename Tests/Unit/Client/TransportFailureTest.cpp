// The meaning of errors of macOS's transport.
#include "Client/TransportFailure.h"

#include <gtest/gtest.h>

namespace {

using kw::ClientError;
using Kind = ClientError::Kind;
using Effect = ClientError::Effect;

void expect(std::int64_t code, Kind kind, Effect effect, const char *name) {
  ClientError error = kw::errorOfTransport(code, "text");
  EXPECT_EQ(error.kind(), kind) << code;
  EXPECT_EQ(error.effect(), effect) << code;
  EXPECT_EQ(error.name(), name) << code;
  EXPECT_STREQ(error.what(), "text") << code;
}

TEST(TransportFailure, tellsTheKindAndTheEffect) {
  expect(4097, Kind::Interrupted, Effect::Unknown, "NSXPCConnectionInterrupted");
  expect(4099, Kind::Unreachable, Effect::None, "NSXPCConnectionInvalid");
  expect(4101, Kind::BadReply, Effect::Unknown, "NSXPCConnectionReplyInvalid");
  expect(4102, Kind::Refused, Effect::Unknown, "NSCocoaErrorDomain 4102");
}

} // namespace
