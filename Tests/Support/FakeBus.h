// The daemon's side of a message bus with one peer. The test chooses every byte
// that it sends to the peer.
#pragma once

#include "Support/ScratchFolder.h"

#include <condition_variable>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <map>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <sys/socket.h>
#include <sys/un.h>
#include <thread>
#include <unistd.h>
#include <vector>

namespace kwtest {

// Little-endian; strings with their lengths, everything where it is aligned.
class WireWriter {
public:
  void pad(std::size_t alignment) {
    bytes_.resize((bytes_.size() + alignment - 1) / alignment * alignment);
  }
  void byte(std::uint8_t value) { bytes_ += static_cast<char>(value); }
  void number(std::uint32_t value) {
    pad(4);
    bytes_.append(reinterpret_cast<const char *>(&value), sizeof value);
  }
  void text(std::string_view value) {
    number(static_cast<std::uint32_t>(value.size()));
    bytes_.append(value).push_back('\0');
  }
  void signature(std::string_view value) {
    byte(static_cast<std::uint8_t>(value.size()));
    bytes_.append(value).push_back('\0');
  }
  void field(std::uint8_t code, char kind, std::string_view value) {
    pad(8);
    byte(code);
    signature({&kind, 1});
    kind == 'g' ? signature(value) : text(value);
  }
  void field(std::uint8_t code, std::uint32_t value) {
    pad(8);
    byte(code);
    signature("u");
    number(value);
  }
  std::string &bytes() { return bytes_; }

private:
  std::string bytes_;
};

class FakeBus {
public:
  enum Kind : std::uint8_t { Call = 1, Reply = 2, Failure = 3, Signal = 4 };
  static constexpr std::uint8_t noReplyExpected = 1;
  // The answer when the peer asks for a name.
  enum class Name : std::uint32_t { Given = 1, HasOwner = 3 };

  // A new bus. It lives as long as the process: so does its thread.
  static FakeBus &start(Name name = Name::Given) {
    static auto &buses = *new std::vector<FakeBus *>; // where a leak check finds them
    return *buses.emplace_back(new FakeBus(name));
  }
  ~FakeBus() = delete;

  // To be asked for before the peer comes.
  std::string address() const { return "unix:path=" + scratch_->path("bus"); }

  // Sends a call with any body from a client's name, and returns its serial.
  std::uint32_t call(std::string_view path, std::string_view interface, std::string_view member,
                     std::string_view signature, std::string_view body, std::uint8_t flags) {
    WireWriter fields;
    fields.field(1, 'o', path);
    fields.field(2, 's', interface);
    fields.field(3, 's', member);
    fields.field(6, 's', ":1.1");
    fields.field(7, 's', ":1.2");
    if (!signature.empty())
      fields.field(8, 'g', signature);
    std::lock_guard lock(mutex_);
    return send(Call, flags, fields.bytes(), body);
  }
  // Sends a signal of the bus, as if from this sender: the client has left.
  void tellThatLeft(std::string_view client, std::string_view sender = "org.freedesktop.DBus") {
    WireWriter fields, body;
    fields.field(1, 'o', "/org/freedesktop/DBus");
    fields.field(2, 's', "org.freedesktop.DBus");
    fields.field(3, 's', "NameOwnerChanged");
    fields.field(7, 's', sender);
    fields.field(8, 'g', "sss");
    for (std::string_view text : {client, client, std::string_view()})
      body.text(text);
    std::lock_guard lock(mutex_);
    send(Signal, noReplyExpected, fields.bytes(), body.bytes());
  }
  // From now on the bus leaves questions about a client unanswered.
  void holdCredentials() {
    std::lock_guard lock(mutex_);
    holdsCredentials_ = true;
  }
  // Answers that none of these clients has a name.
  void sayThatClientsAreGone() {
    std::lock_guard lock(mutex_);
    holdsCredentials_ = false;
    for (const Header &call : held_)
      answer(call, "org.freedesktop.DBus.Error.NameHasNoOwner");
  }
  // Breaks the connection.
  void hangUp() { ::shutdown(peer_, SHUT_RDWR); }

  // The members that the peer has called on the bus itself, in order.
  std::vector<std::string> asked() {
    std::lock_guard lock(mutex_);
    return asked_;
  }
  // The members of the signals that the peer has sent.
  std::vector<std::string> signalled() {
    std::lock_guard lock(mutex_);
    return signalled_;
  }
  // Waits for the answer to the other call, and returns each answer that the
  // first call had by then: the name of its error, empty for a reply. Forgets
  // all answers.
  std::vector<std::string> answersWhenAnswered(std::uint32_t serial, std::uint32_t other) {
    std::unique_lock lock(mutex_);
    arrived_.wait(lock, [&] { return answers_.contains(other); });
    std::vector<std::string> found = std::move(answers_[serial]);
    answers_.clear();
    return found;
  }

private:
  explicit FakeBus(Name name)
      : name_(name), listening_(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0)) {
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    std::string path = scratch_->path("bus");
    std::memcpy(address.sun_path, path.c_str(), path.size() + 1);
    if (::bind(listening_, reinterpret_cast<const sockaddr *>(&address), sizeof address) != 0 ||
        ::listen(listening_, 1) != 0)
      std::abort();
    std::thread([this] { serve(); }).detach();
  }

  struct PeerIsGone {};
  struct Header {
    std::uint8_t kind = 0;
    std::uint32_t serial = 0;
    std::uint32_t replySerial = 0;
    std::string member;
    std::string error;
  };

  std::uint32_t send(std::uint8_t kind, std::uint8_t flags, const std::string &fields,
                     std::string_view body) {
    WireWriter message;
    for (std::uint8_t value : {std::uint8_t{'l'}, kind, flags, std::uint8_t{1}})
      message.byte(value);
    message.number(static_cast<std::uint32_t>(body.size()));
    message.number(++lastSerial_);
    message.number(static_cast<std::uint32_t>(fields.size()));
    message.bytes() += fields;
    message.pad(8);
    message.bytes() += body;
    writeAll(message.bytes());
    return lastSerial_;
  }
  void writeAll(std::string_view bytes) {
    while (!bytes.empty()) {
      ssize_t count = ::send(peer_, bytes.data(), bytes.size(), MSG_NOSIGNAL);
      if (count <= 0)
        return; // the peer is gone, which the reader sees
      bytes.remove_prefix(static_cast<std::size_t>(count));
    }
  }
  std::string read(std::size_t size) {
    std::string bytes(size, '\0');
    if (size > 0 && ::recv(peer_, bytes.data(), size, MSG_WAITALL) != static_cast<ssize_t>(size))
      throw PeerIsGone();
    return bytes;
  }
  std::string readLine() {
    std::string line;
    while (!line.ends_with("\r\n"))
      line += read(1);
    return line;
  }

  void serve() {
    try {
      talk();
    } catch (const PeerIsGone &) { // the peer is gone
    }
  }
  void talk() {
    peer_ = ::accept4(listening_, nullptr, nullptr, SOCK_CLOEXEC);
    scratch_.reset(); // no other peer will look for the socket
    while (true) {
      std::string line = readLine();
      if (line.find("BEGIN") != std::string::npos)
        break;
      if (line.find("NEGOTIATE") != std::string::npos)
        writeAll("AGREE_UNIX_FD\r\n");
      else if (line.ends_with("AUTH EXTERNAL\r\n")) // without a user name
        writeAll("DATA\r\n");
      else
        writeAll("OK 0123456789abcdef0123456789abcdef\r\n");
    }
    while (true)
      take();
  }
  void take() {
    std::string fixed = read(16);
    std::uint32_t bodySize, fieldsSize;
    Header header;
    header.kind = static_cast<std::uint8_t>(fixed[1]);
    std::memcpy(&bodySize, fixed.data() + 4, 4);
    std::memcpy(&header.serial, fixed.data() + 8, 4);
    std::memcpy(&fieldsSize, fixed.data() + 12, 4);
    readFields(read((fieldsSize + 7) / 8 * 8), fieldsSize, header);
    static_cast<void>(read(bodySize));
    std::lock_guard lock(mutex_);
    if (header.kind == Call) {
      asked_.push_back(header.member);
      if (holdsCredentials_ && header.member == "GetConnectionCredentials")
        held_.push_back(header);
      else
        answer(header, header.member == "GetConnectionStats"
                           ? "org.freedesktop.DBus.Error.AccessDenied"
                           : "");
    } else if (header.kind == Signal) {
      signalled_.push_back(header.member);
    } else {
      answers_[header.replySerial].push_back(header.error);
      arrived_.notify_all();
    }
  }
  static void readFields(const std::string &bytes, std::size_t size, Header &header) {
    for (std::size_t at = 0; at + 4 < size; at = (at + 7) / 8 * 8) {
      auto code = static_cast<std::uint8_t>(bytes[at]);
      char kind = bytes[at + 2];
      at += 4;
      if (kind == 'g') {
        at += static_cast<std::uint8_t>(bytes[at]) + 2U;
        continue;
      }
      std::uint32_t value;
      std::memcpy(&value, bytes.data() + at, 4);
      at += 4;
      if (kind == 'u' && code == 5)
        header.replySerial = value;
      if (kind == 'u')
        continue;
      if (code == 3)
        header.member = bytes.substr(at, value);
      if (code == 4)
        header.error = bytes.substr(at, value);
      at += value + 1;
    }
  }
  void answer(const Header &call, std::string_view failure) {
    WireWriter fields, body;
    fields.field(5, call.serial);
    fields.field(6, 's', ":1.1");
    fields.field(7, 's', "org.freedesktop.DBus");
    bool isHello = call.member == "Hello", isRequest = call.member == "RequestName";
    if (isHello)
      body.text(":1.1");
    if (isRequest)
      body.number(static_cast<std::uint32_t>(name_));
    if (isHello || isRequest)
      fields.field(8, 'g', isHello ? "s" : "u");
    else if (!failure.empty())
      fields.field(4, 's', failure);
    send(failure.empty() ? Reply : Failure, noReplyExpected, fields.bytes(), body.bytes());
  }

  const Name name_;
  std::optional<ScratchFolder> scratch_{std::in_place};
  int listening_;
  int peer_ = -1;
  std::mutex mutex_; // guards the members below, and writing after the start
  std::condition_variable arrived_;
  bool holdsCredentials_ = false;
  std::vector<Header> held_; // the questions without an answer
  std::uint32_t lastSerial_ = 0;
  std::map<std::uint32_t, std::vector<std::string>> answers_; // by the serial of the call
  std::vector<std::string> asked_;
  std::vector<std::string> signalled_;
};

} // namespace kwtest
