# morvane_require_vendor_id(TEXT VALUE): ends the configuring unless VALUE is a USB vendor
# id, or 0x0000 for none. In decimal, or without 0x, CMake and the compiler would each take
# it for something else.
function(morvane_require_vendor_id text value)
  if(NOT value MATCHES "^0[xX][0-9a-fA-F][0-9a-fA-F]?[0-9a-fA-F]?[0-9a-fA-F]?$")
    message(FATAL_ERROR
      "${text}${value} is no USB vendor id: write 0x and one to four hexadecimal digits, as in 0x1A2B, or 0x0000 for none")
  endif()
endfunction()
