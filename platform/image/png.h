#pragma once

#include "platform/base/reference.h"
#include "platform/base/strings.h"
#include "platform/image/export.h"
#include "platform/image/image.h"

namespace ruImage {

// Reads a PNG file into a new four-channel image (grey, palette, 16-bit and alpha-less files are
// converted to 8-bit RGBA). The file's top row becomes row 0. On failure returns a null reference
// and, when `error` is given, sets it to a message naming the file and what is wrong.
RU_IMAGE_API ru::Reference<TypedImage<Byte4>> readPng(const ruString::CString& path,
                                                      ruString::CString* error = nullptr);

// Writes `image` (Byte4 as RGBA, Byte1 as grey) to a PNG file, row 0 as the top row. An image
// without pixels cannot be written. Returns false on failure and, when `error` is given, sets it
// to a message naming the file and what is wrong.
RU_IMAGE_API bool writePng(const Image& image, const ruString::CString& path, ruString::CString* error = nullptr);

}  // namespace ruImage
