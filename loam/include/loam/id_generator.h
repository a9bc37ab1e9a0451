// loam/id_generator.h - zIDGenerator makes identifiers that are unique everywhere.
#pragma once

#include "loam/export.h"
#include "loam/string.h"

class LOAM_API zIDGenerator {
public:
    // Puts a new random UUID (version 4) into `out`, 36 characters in lower case, and returns its
    // text. From any thread. Empty when the system has no random numbers to give.
    static const char* GenerateUUID(zString& out);
};
