# The target Morvane::libusb, for this build and, installed, for who uses it. Not by
# pkg-config, so that a compiler and libusb are enough.
if(NOT TARGET Morvane::libusb)
  find_path(MORVANE_LIBUSB_INCLUDE_DIR libusb-1.0/libusb.h)
  find_library(MORVANE_LIBUSB_LIBRARY usb-1.0)
  mark_as_advanced(MORVANE_LIBUSB_INCLUDE_DIR MORVANE_LIBUSB_LIBRARY)
  if(MORVANE_LIBUSB_INCLUDE_DIR AND MORVANE_LIBUSB_LIBRARY)
    add_library(Morvane::libusb UNKNOWN IMPORTED)
    set_target_properties(Morvane::libusb PROPERTIES
      IMPORTED_LOCATION "${MORVANE_LIBUSB_LIBRARY}"
      INTERFACE_INCLUDE_DIRECTORIES "${MORVANE_LIBUSB_INCLUDE_DIR}")
  elseif(NOT CMAKE_FIND_PACKAGE_NAME)
    message(FATAL_ERROR "libusb-1.0 is missing (Debian: libusb-1.0-0-dev)")
  endif()
endif()
