#pragma once

#include <cstdint>
#include <memory>
#include <mutex>
#include <shared_mutex>
#include <unordered_map>
#include <utility>

namespace pavo::producer {

// Gives out handles that only look like pointers: a number that is never used twice. So whatever a caller
// passes, a handle of something that is gone, or rubbish, it is found out and not followed.
//
// Ownership: keeps its objects until they are removed.
// Threads:   any. Looking one up allocates nothing.
template <typename Handle, typename Object>
class HandleTable final {
public:
    // Never destroyed: other threads may use it until the process ends.
    static HandleTable& shared()
    {
        static auto& table = *new HandleTable;
        return table;
    }

    Handle* add(std::shared_ptr<Object> object)
    {
        const std::lock_guard lock(mutex_);
        auto* const handle = reinterpret_cast<Handle*>(++last_);
        objects_.emplace(handle, std::move(object));
        return handle;
    }
    // Null where there is no such handle.
    std::shared_ptr<Object> find(const Handle* handle) const
    {
        const std::shared_lock lock(mutex_);
        const auto found = objects_.find(handle);
        return found == objects_.end() ? nullptr : found->second;
    }
    std::shared_ptr<Object> remove(const Handle* handle)
    {
        const std::lock_guard lock(mutex_);
        const auto found = objects_.find(handle);
        if (found == objects_.end()) return nullptr;
        auto object = std::move(found->second);
        objects_.erase(found);
        return object;
    }

private:
    mutable std::shared_mutex mutex_;
    std::unordered_map<const Handle*, std::shared_ptr<Object>> objects_;
    std::uintptr_t last_ = 0x1000;  // so that small numbers are none of ours
};

}  // namespace pavo::producer
