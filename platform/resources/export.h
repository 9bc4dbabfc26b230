#pragma once

// Symbols of libResources that other libraries and hosts may use.
#if defined(_WIN32)
#define VO_RES_API __declspec(dllexport)
#else
#define VO_RES_API __attribute__((visibility("default")))
#endif
