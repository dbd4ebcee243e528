#pragma once

// Marks what applications use; everything else in the library is hidden.
#define MORVANE_API __attribute__((visibility("default")))

// What of an exported class nobody outside can call: private helpers, and operations whose
// arguments only the library has. Statics that tell what the library is at stay visible.
#define MORVANE_LOCAL __attribute__((visibility("hidden")))
