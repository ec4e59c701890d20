// A walk over entries that a test makes up.
#pragma once

#include "Foundation/Base/Exception.h"
#include "Foundation/Base/SharedInstance.h"
#include "Foundation/Walking/FTS.h"

#include <cerrno>
#include <deque>
#include <functional>
#include <memory>
#include <string>
#include <utility>
#include <vector>

namespace kwtest {

// Plays one root folder with leaves, and the entries that a test adds.
class FakeFTS final : public NS::FTS {
public:
  FakeFTS() { top.level = -1; }

  // The entry above the root.
  NS::FTSEntry top;
  // Returned in order; an entry may occur twice, as a folder does.
  struct Step {
    NS::FTSEntry *entry;
    NS::FTSInfo info;
  };
  std::vector<Step> steps;
  bool refuses = false;         // open fails
  bool refusesFirst = false;    // the same, but only once
  int failure = 0;              // the reason why the walk is given up after the last step
  bool raisesOnClose = false;   // close raises
  std::function<void()> onRead; // called before each entry
  int opened = 0;
  int openedForAll = 0; // those of them that may read ahead
  int closed = 0;       // by call or by destruction
  std::string openedPath;
  int openedOptions = 0;

  NS::FTSEntry &add(const std::string &path, NS::FTSInfo info, NS::FTSEntry &parent,
                    NS::FTSStat status = {}, int errnum = 0) {
    NS::FTSEntry &entry = entries_.emplace_back();
    paths_.push_back(path);
    entry.path = entry.name = paths_.back();
    entry.info = info;
    entry.errnum = errnum;
    entry.parent = &parent;
    entry.level = parent.level + 1;
    entry.statp = status;
    steps.push_back({&entry, info});
    return entry;
  }
  void again(NS::FTSEntry &entry, NS::FTSInfo info) { steps.push_back({&entry, info}); }

  std::unique_ptr<NS::FTSStream> open(const std::string &path, int options) override {
    openedPath = path;
    openedOptions = options;
    ++opened;
    if (!std::exchange(refusesFirst, false) && !refuses)
      return std::make_unique<Stream>(*this);
    errno = ENOMEM;
    return nullptr;
  }
  std::unique_ptr<NS::FTSStream> openForAll(const std::string &path, int options,
                                            const NS::FTSSieve * /*sieve*/) override {
    ++openedForAll;
    return open(path, options);
  }

private:
  class Stream final : public NS::FTSStream {
  public:
    explicit Stream(FakeFTS &fake) : fake_(fake) {}
    ~Stream() override { fake_.closed += !closed_; }
    NS::FTSEntry *read() override {
      if (next_ == fake_.steps.size())
        return nullptr;
      if (fake_.onRead)
        fake_.onRead();
      Step step = fake_.steps[next_++];
      step.entry->info = step.info;
      return step.entry;
    }
    int failure() const override { return next_ == fake_.steps.size() ? fake_.failure : 0; }
    void set(NS::FTSEntry & /*entry*/, NS::FTSInstruction /*instruction*/) override {}
    void close() override {
      fake_.closed += !closed_;
      closed_ = true;
      if (fake_.raisesOnClose)
        throw NS::Exception("Whatever", "cannot close");
    }

  private:
    FakeFTS &fake_;
    std::size_t next_ = 0;
    bool closed_ = false;
  };

  std::deque<NS::FTSEntry> entries_;
  std::deque<std::string> paths_;
  NS::ScopedOverride<NS::FTS> override_{*this};
};

} // namespace kwtest
