#pragma once

// Symbols of libDataModel that other libraries and hosts may use.
#if defined(_WIN32)
#define VO_DMD_API __declspec(dllexport)
#else
#define VO_DMD_API __attribute__((visibility("default")))
#endif
