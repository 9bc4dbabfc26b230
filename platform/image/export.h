#pragma once

// Marks what libImage exports; everything else in the library is hidden.
#define RU_IMAGE_API __attribute__((visibility("default")))
