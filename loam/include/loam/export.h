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
