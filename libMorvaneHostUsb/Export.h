#pragma once

// Marks what applications use; everything else in the library is hidden.
#define MORVANE_API __attribute__((visibility("default")))
