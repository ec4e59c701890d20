// Monitors in a table by address, spread over several mutexes so that threads
// which lock different objects rarely meet.
#include "Foundation/Threads/Monitor.h"

#include <array>
#include <cstddef>
#include <cstdint>
#include <mutex>
#include <unordered_map>

namespace NS {

struct Monitor::Entry {
  std::recursive_mutex mutex;
  std::size_t users = 0; // threads that hold it, counted once a level, or wait for it
};

class MonitorTable {
public:
  static MonitorTable &shared() {
    // Never destroyed: threads may lock until the very end of the process.
    static auto *instance = new MonitorTable;
    return *instance;
  }

  // The object's entry, kept until it is returned.
  Monitor::Entry *take(const Object &object) {
    Shard &shard = shardOf(object);
    std::lock_guard lock(shard.mutex);
    // The nodes of this container never move.
    Monitor::Entry &entry = shard.entries[&object];
    ++entry.users;
    return &entry;
  }

  void giveBack(const Object &object) {
    Shard &shard = shardOf(object);
    std::lock_guard lock(shard.mutex);
    auto found = shard.entries.find(&object);
    if (--found->second.users == 0)
      shard.entries.erase(found);
  }

private:
  struct Shard {
    std::mutex mutex;
    std::unordered_map<const Object *, Monitor::Entry> entries;
  };

  Shard &shardOf(const Object &object) {
    // The low bits of an address are always zero.
    auto address = reinterpret_cast<std::uintptr_t>(&object);
    return shards_[(address >> 6) % shards_.size()];
  }

  std::array<Shard, 16> shards_;
};

Monitor::Monitor(const Object &object)
    : object_(&object), entry_(MonitorTable::shared().take(object)) {
  entry_->mutex.lock();
}

Monitor::~Monitor() {
  entry_->mutex.unlock();
  MonitorTable::shared().giveBack(*object_);
}

} // namespace NS
