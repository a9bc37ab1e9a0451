// loam/export.h - marks what the loam library exports. Everything else stays hidden.
#pragma once

#if defined(_WIN32)
#if defined(LOAM_BUILDING)
#define LOAM_API __declspec(dllexport)
#else
#define LOAM_API __declspec(dllimport)
#endif
#else
#define LOAM_API __attribute__((visibility("default")))
#endif

// Lets the compiler check the arguments of a printf-style operation. Parameters are counted from
// 1, and a member function's object counts as one; `first` is 0 where they come as a va_list.
#if defined(__MINGW_PRINTF_FORMAT)
#define LOAM_PRINTF(text, first) __attribute__((format(__MINGW_PRINTF_FORMAT, text, first)))
#elif defined(__GNUC__)
#define LOAM_PRINTF(text, first) __attribute__((format(printf, text, first)))
#else
#define LOAM_PRINTF(text, first)
#endif
