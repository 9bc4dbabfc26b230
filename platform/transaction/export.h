#pragma once

// Marks what libTransaction exports; everything else in the library is hidden.
#define VO_TXN_API __attribute__((visibility("default")))
