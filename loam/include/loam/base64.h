// loam/base64.h - base64 with the standard alphabet and padding.
#pragma once

#include "loam/export.h"

// The bytes that Base64encode writes for `length` bytes of input, its NUL included. 1 for a
// negative length; -1 where that does not fit.
LOAM_API int Base64encode_len(int length);

// Writes the encoded text and a NUL to `out`, which must have room for Base64encode_len(length)
// bytes. Returns the number of bytes written, NUL included.
LOAM_API int Base64encode(char* out, const char* in, int length);
