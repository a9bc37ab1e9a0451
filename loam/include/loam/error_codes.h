// loam/error_codes.h - zErrCodeManager, which part of the system a status code belongs to.
#pragma once

#include <cstdint>

#include "loam/export.h"
#include "loam/types.h"

// From any thread.
class LOAM_API zErrCodeManager {
public:
    // Registers the codes `first` to `last`, both included, under a label, for the life of the
    // process. The same registration again is harmless, so that a module can start twice. Returns
    // -1, and registers nothing, when first > last, the label is null or empty, or the range
    // meets another one.
    static zStatus RegisterCodeRange(std::int32_t first, std::int32_t last, const char* label);

    // The label of the range that holds `code`, or "". Valid for the life of the process.
    static const char* LabelFor(std::int32_t code);
};
