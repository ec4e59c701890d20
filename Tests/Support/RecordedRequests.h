// A journal that only keeps its records.
#pragma once

#include "Foundation/Base/SharedInstance.h"
#include "Service/RequestJournal.h"

#include <mutex>
#include <vector>

namespace kwtest {

class RecordedRequests final : public NS::RequestJournal {
public:
  void write(const NS::RequestRecord &record) override {
    std::lock_guard lock(mutex_);
    records_.push_back(record);
  }
  std::vector<NS::RequestRecord> records() const {
    std::lock_guard lock(mutex_);
    return records_;
  }

private:
  mutable std::mutex mutex_;
  std::vector<NS::RequestRecord> records_;
  NS::ScopedOverride<NS::RequestJournal> override_{*this};
};

} // namespace kwtest
