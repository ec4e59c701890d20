// Looks messages up, and carries outcomes back to a caller.
#include "Protocol/XPCInterface.h"

#include <new>

namespace NS {

class XPCReply::State {
public:
  explicit State(Receiver receiver) : receiver_(std::move(receiver)) {}
  ~State() {
    try {
      deliver({.reason = "the request ended without a reply"});
    } catch (const std::bad_alloc &) { // no memory for this text
      deliver({});
    }
  }
  State(const State &) = delete;
  State &operator=(const State &) = delete;

  void deliver(XPCOutcome outcome) {
    if (!answered_.exchange(true) && receiver_)
      receiver_(std::move(outcome));
  }

private:
  Receiver receiver_;
  std::atomic<bool> answered_{false};
};

XPCReply::XPCReply(Receiver receiver) : state_(std::make_shared<State>(std::move(receiver))) {}

void XPCReply::send(XPCValues values) const {
  state_->deliver({.replied = true, .values = std::move(values)});
}

void XPCReply::fail(std::string reason) const {
  state_->deliver({.reason = std::move(reason)});
}

const XPCMethod *XPCInterface::methodWithMember(std::string_view member) const {
  for (const XPCMethod &method : methods)
    if (method.member == member)
      return &method;
  return nullptr;
}

const XPCMethod *XPCInterface::methodWithSelector(std::string_view selector) const {
  for (const XPCMethod &method : methods)
    if (method.selector == selector)
      return &method;
  return nullptr;
}

} // namespace NS
