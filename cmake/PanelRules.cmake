# morvane_write_panel_rules(FILE VENDOR...): the udev rule that opens panels to ordinary
# users, with a line for each vendor id that is known: 0x0000 is none.
set(morvanePanelRulesTemplate ${CMAKE_CURRENT_LIST_DIR}/../packaging/70-morvane-panel.rules.in)

function(morvane_write_panel_rules file)
  set(morvanePanelRules "")
  foreach(vendor IN LISTS ARGN)
    math(EXPR number "${vendor}")
    if(number LESS 0 OR number GREATER 0xFFFF)
      message(FATAL_ERROR "${vendor} is no USB vendor id: those are 0x0001 to 0xFFFF")
    endif()
    # udev compares text: four lower-case digits.
    math(EXPR digits "0x10000 + ${number}" OUTPUT_FORMAT HEXADECIMAL)
    string(SUBSTRING ${digits} 3 4 digits)
    if(NOT digits STREQUAL "0000")
      string(APPEND morvanePanelRules
        "ATTR{idVendor}==\"${digits}\", ATTR{idProduct}==\"beef\", MODE=\"0660\", GROUP=\"plugdev\", TAG+=\"uaccess\"\n")
    endif()
  endforeach()
  configure_file(${morvanePanelRulesTemplate} ${file} @ONLY)
endfunction()
