// loam/critical.h - zCritical, a mutual-exclusion lock, and zAutoCritical, its scoped holder.
#pragma once

#include "loam/export.h"

class LOAM_API zCritical {
public:
    // With 1 the owner may lock again and unlocks as often; with 0 it must not. The caller deletes
    // the lock, unlocked. Null when it cannot be made.
    static zCritical* Factory(char recursive);

    zCritical(const zCritical&) = delete;
    zCritical& operator=(const zCritical&) = delete;
    virtual ~zCritical();

    virtual void Lock() = 0;
    // Only by the thread that holds the lock.
    virtual void Unlock() = 0;
    // Locks if no other thread holds the lock, and says whether it did; never waits.
    virtual bool TryLock() = 0;

protected:
    zCritical();
};

// Holds the lock from construction to destruction; with null it does nothing. The lock is not
// owned.
class LOAM_API zAutoCritical {
public:
    explicit zAutoCritical(zCritical* critical);
    zAutoCritical(const zAutoCritical&) = delete;
    zAutoCritical& operator=(const zAutoCritical&) = delete;
    virtual ~zAutoCritical();

private:
    zCritical* m_critical;
};
