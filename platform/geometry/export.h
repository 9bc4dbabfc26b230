#pragma once

// Marks what libGeometry exports; everything else in the library is hidden.
#define RU_GEOM_API __attribute__((visibility("default")))
