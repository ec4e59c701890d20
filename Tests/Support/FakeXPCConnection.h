// A connection that only records the calls of its members.
#pragma once

#include "Service/XPCConnection.h"

#include <string>
#include <utility>
#include <vector>

namespace kwtest {

class FakeXPCConnection : public NS::XPCConnection {
public:
  void setExportedInterface(std::shared_ptr<const NS::XPCInterface> interface) override {
    exportedInterface = std::move(interface);
    steps.push_back("exportedInterface");
  }
  void setRemoteObjectInterface(std::shared_ptr<const NS::XPCInterface> interface) override {
    remoteInterface = std::move(interface);
    steps.push_back("remoteObjectInterface");
  }
  void setExportedObject(std::shared_ptr<NS::XPCObject> object) override {
    exportedObject = std::move(object);
    steps.push_back("exportedObject");
  }
  void resume() override { steps.push_back("resume"); }
  void suspend() override { steps.push_back("suspend"); }
  void sendToRemoteObject(const std::string &selector, NS::XPCValues arguments) override {
    sent.emplace_back(selector, std::move(arguments));
  }
  std::int32_t processIdentifier() const override { return process; }
  std::uint32_t effectiveUserIdentifier() const override { return user; }

  std::shared_ptr<const NS::XPCInterface> exportedInterface;
  std::shared_ptr<const NS::XPCInterface> remoteInterface;
  std::shared_ptr<NS::XPCObject> exportedObject;
  std::vector<std::string> steps; // in the order in which they were taken
  std::vector<std::pair<std::string, NS::XPCValues>> sent;
  std::int32_t process = 1;
  std::uint32_t user = 0;
};

} // namespace kwtest
