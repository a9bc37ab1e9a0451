// pennywort_export.h - marks what the pennywort library exports. Everything else stays hidden.
#pragma once

#if defined(_WIN32)
#if defined(PENNYWORT_BUILDING)
#define PENNYWORT_API __declspec(dllexport)
#else
#define PENNYWORT_API __declspec(dllimport)
#endif
#else
#define PENNYWORT_API __attribute__((visibility("default")))
#endif
