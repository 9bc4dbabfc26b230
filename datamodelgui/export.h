#pragma once

// Marks what libDataModelGUI exports; everything else in the library is hidden.
#define DMGUI_API __attribute__((visibility("default")))
