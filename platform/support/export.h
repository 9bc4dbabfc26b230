#pragma once

// Marks what libSupport exports; everything else in the library is hidden.
#define VO_SUPPORT_API __attribute__((visibility("default")))
