#pragma once

#include "platform/foundation/Lock.h"

#include <cstddef>
#include <cstdint>
#include <list>
#include <map>
#include <utility>

namespace platform {

/// Keeps what is costly to make until there is too much of it: what was not asked for the longest goes first. Any
/// thread.
///
/// @tparam Key    has an order
/// @tparam Value  copied out; a shared pointer as a rule
template <typename Key, typename Value>
class NSCache final {
public:
    NSCache() = default;
    /// @param countLimit      most objects; 0 is no limit
    /// @param totalCostLimit  most cost of all objects together; 0 is no limit
    NSCache(size_t countLimit, uint64_t totalCostLimit) : countLimit_(countLimit), totalCostLimit_(totalCostLimit) {}

    NSCache(const NSCache&) = delete;
    NSCache& operator=(const NSCache&) = delete;

    /// A value made without arguments, such as null, if there is none.
    Value objectForKey(const Key& key)
    {
        const LockGuard guard(lock_);
        const auto found = places_.find(key);
        if (found == places_.end())
            return Value{};
        entries_.splice(entries_.begin(), entries_, found->second);
        return found->second->value;
    }

    /// Replaces what the key had. An object that costs more than all may is not kept.
    ///
    /// @param cost  in a unit of the caller's, such as bytes
    void setObject(Value value, const Key& key, uint64_t cost = 0)
    {
        // What is taken out is destroyed without the lock: that may take long, and may call back.
        std::list<Entry> removed;
        const LockGuard guard(lock_);
        if (const auto found = places_.find(key); found != places_.end())
            take(found->second, removed);
        if (totalCostLimit_ > 0 && cost > totalCostLimit_)
            return;
        entries_.push_front({key, std::move(value), cost});
        places_[key] = entries_.begin();
        totalCost_ += cost;
        // The newest fits, so it stays.
        while ((countLimit_ > 0 && entries_.size() > countLimit_) ||
               (totalCostLimit_ > 0 && totalCost_ > totalCostLimit_))
            take(std::prev(entries_.end()), removed);
    }

    void removeObjectForKey(const Key& key)
    {
        std::list<Entry> removed;
        const LockGuard guard(lock_);
        if (const auto found = places_.find(key); found != places_.end())
            take(found->second, removed);
    }

    void removeAllObjects()
    {
        std::list<Entry> removed;
        const LockGuard guard(lock_);
        places_.clear();
        entries_.swap(removed);
        totalCost_ = 0;
    }

private:
    struct Entry {
        Key key;
        Value value;
        uint64_t cost = 0;
    };

    void take(typename std::list<Entry>::iterator entry, std::list<Entry>& removed) REQUIRES(lock_)
    {
        places_.erase(entry->key);
        totalCost_ -= entry->cost;
        removed.splice(removed.end(), entries_, entry);
    }

    const size_t countLimit_ = 0;
    const uint64_t totalCostLimit_ = 0;

    Lock lock_;
    // The latest used first.
    std::list<Entry> entries_ GUARDED_BY(lock_);
    std::map<Key, typename std::list<Entry>::iterator> places_ GUARDED_BY(lock_);
    uint64_t totalCost_ GUARDED_BY(lock_) = 0;
};

} // namespace platform
