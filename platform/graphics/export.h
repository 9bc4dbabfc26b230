#pragma once

// Symbols of libGraphics that other libraries and hosts may use.
#define VO_GR_API __attribute__((visibility("default")))
