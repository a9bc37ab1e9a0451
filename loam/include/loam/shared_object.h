// loam/shared_object.h - zSharedObject, the base of objects that shared pointers hold.
#pragma once

#include <memory>

#include "loam/export.h"

// Made by std::make_shared of the derived class; shared_from_this() then returns a shared pointer
// to the base. Copies are objects of their own, with no owner yet.
class LOAM_API zSharedObject : public std::enable_shared_from_this<zSharedObject> {
public:
    virtual ~zSharedObject();

protected:
    zSharedObject();
    zSharedObject(const zSharedObject& other);
    zSharedObject& operator=(const zSharedObject& other);
};
