#pragma once

// Marks what libBase exports; everything else in the library is hidden.
#define RU_BASE_API __attribute__((visibility("default")))
