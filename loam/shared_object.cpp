// loam/shared_object.cpp - see the header for the contract.
#include "loam/shared_object.h"

zSharedObject::zSharedObject() = default;
zSharedObject::zSharedObject(const zSharedObject&) = default;
zSharedObject& zSharedObject::operator=(const zSharedObject&) = default;
zSharedObject::~zSharedObject() = default;
