#pragma once

// ZGU_API marks the exported surface of the shared library; everything else is
// built with hidden visibility so that internal helpers never leak into the ABI.
#if defined(ZGU_STATIC_DEFINE)
#define ZGU_API
#elif defined(_WIN32)
#if defined(ZGU_BUILDING_LIBRARY)
#define ZGU_API __declspec(dllexport)
#else
#define ZGU_API __declspec(dllimport)
#endif
#else
#define ZGU_API __attribute__((visibility("default")))
#endif
