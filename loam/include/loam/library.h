// loam/library.h - zLibrary opens a shared library at run time.
#pragma once

#include "loam/export.h"
#include "loam/types.h"

// Threads: one at a time.
class LOAM_API zLibrary {
public:
    // Nothing is loaded. The caller deletes it. Null when it cannot be made.
    static zLibrary* Factory();

    zLibrary(const zLibrary&) = delete;
    zLibrary& operator=(const zLibrary&) = delete;
    // Unloads, unless Keep() was called.
    virtual ~zLibrary();

    // Opens a library by its name, which the system looks for, or by its path, in UTF-8. Its names
    // stay its own, and everything it needs is resolved now. Replaces a library that was loaded
    // before. -1 on failure, and then nothing is loaded.
    virtual zStatus Load(const char* name) = 0;
    // The address of an exported name; null when there is none.
    virtual void* Symbol(const char* name) = 0;
    // Harmless when nothing is loaded. After Keep() the library stays in the process.
    virtual void Unload() = 0;
    // Never unload what is loaded now: for a library whose threads or handlers outlive its use.
    virtual void Keep() = 0;
    virtual bool IsLoaded() const = 0;
    // Why the last Load() or Symbol() failed, in the system's words; "" when it did not. Valid
    // until the next call.
    virtual const char* Error() const = 0;

protected:
    zLibrary();
};
