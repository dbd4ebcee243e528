# morvane_write_panel_rules(FILE VENDOR...): the udev rule that opens panels to ordinary
# users, with a line for each vendor id that is known: 0x0000 is none.
include(${CMAKE_CURRENT_LIST_DIR}/VendorId.cmake)
set(morvanePanelRulesTemplate ${CMAKE_CURRENT_LIST_DIR}/../packaging/70-morvane-panel.rules.in)

function(morvane_write_panel_rules file)
  set(morvanePanelRules "")
  foreach(vendor IN LISTS ARGN)
    morvane_require_vendor_id("" "${vendor}")
    # udev compares text: four lower-case digits.
    math(EXPR digits "0x10000 + ${vendor}" OUTPUT_FORMAT HEXADECIMAL)
    string(SUBSTRING ${digits} 3 4 digits)
    if(NOT digits STREQUAL "0000")
      string(APPEND morvanePanelRules
        "ATTR{idVendor}==\"${digits}\", ATTR{idProduct}==\"beef\", MODE=\"0660\", GROUP=\"plugdev\", TAG+=\"uaccess\"\n")
    endif()
  endforeach()
  configure_file(${morvanePanelRulesTemplate} ${file} @ONLY)
endfunction()
