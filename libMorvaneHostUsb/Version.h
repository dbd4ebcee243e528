#pragma once

// The version of the headers that a program is compiled with; the project has it from here.
#define MORVANE_VERSION_MAJOR 1
#define MORVANE_VERSION_MINOR 2
#define MORVANE_VERSION_PATCH 1

// Versions as numbers, of which the later is the greater; for the preprocessor as well:
//
//     #if MORVANE_VERSION >= MORVANE_VERSION_NUMBER(1, 3, 0)
#define MORVANE_VERSION_NUMBER(major, minor, patch) ((major)*10000 + (minor)*100 + (patch))
#define MORVANE_VERSION MORVANE_VERSION_NUMBER(MORVANE_VERSION_MAJOR, MORVANE_VERSION_MINOR, MORVANE_VERSION_PATCH)

// As text: "1.2.1".
#define MORVANE_VERSION_STRING                                                                                         \
    MORVANE_VERSION_TEXT(MORVANE_VERSION_MAJOR)                                                                        \
    "." MORVANE_VERSION_TEXT(MORVANE_VERSION_MINOR) "." MORVANE_VERSION_TEXT(MORVANE_VERSION_PATCH)

// The library that a program then runs with tells its own version. It may be a later one of
// the same major version; an earlier one may lack what the program calls:
//
//     const int present = MORVANE_VERSION_NUMBER(UsbManager::getVersionMajor(), UsbManager::getVersionMinor(),
//                                                UsbManager::getVersionPatch());
//     const bool isEarlier = present < MORVANE_VERSION;

// Only for the above.
#define MORVANE_VERSION_TEXT(part) MORVANE_VERSION_QUOTED(part)
#define MORVANE_VERSION_QUOTED(part) #part
