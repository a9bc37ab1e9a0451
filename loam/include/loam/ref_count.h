// loam/ref_count.h - zRefCount, the base of objects that end with their last reference.
#pragma once

#include <atomic>
#include <cstdint>

#include "loam/export.h"

// Whoever calls `new` holds the first reference. The object is ended by Release(), never by
// delete. Threads: all operations may be called from any thread at once; the last Release() runs
// the destructor on its thread.
class LOAM_API zRefCount {
public:
    zRefCount() = default;
    zRefCount(const zRefCount&) = delete;
    zRefCount& operator=(const zRefCount&) = delete;

    // Returns the new count. Only for callers that hold a reference already.
    std::int32_t AddRef();
    // Returns the new count; at 0 the object is gone.
    std::int32_t Release();
    // Takes a reference unless the last one has gone. For a callback that may race with the last
    // Release(): the object's memory must still be there, which the caller ensures by a lock that
    // the destructor takes too.
    bool AddRefIfAlive();

protected:
    virtual ~zRefCount();

private:
    std::atomic<std::int32_t> m_references{1};
};
