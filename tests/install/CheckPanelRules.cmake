# The whole udev rule, without and with the production vendor id.
include(${CMAKE_CURRENT_LIST_DIR}/../../cmake/PanelRules.cmake)

function(expect_rules lines)
  set(file ${workDir}/70-morvane-panel.rules)
  morvane_write_panel_rules(${file} ${ARGN})
  file(READ ${file} found)
  string(REGEX REPLACE "#[^\n]*\n" "" found "${found}")
  string(CONCAT expected
    "ACTION==\"remove\", GOTO=\"morvane_panel_end\"\n"
    "SUBSYSTEM!=\"usb\", GOTO=\"morvane_panel_end\"\n"
    "ENV{DEVTYPE}!=\"usb_device\", GOTO=\"morvane_panel_end\"\n"
    "\n"
    "${lines}"
    "\n"
    "LABEL=\"morvane_panel_end\"\n")
  if(NOT found STREQUAL expected)
    message(SEND_ERROR "rules for ${ARGN}:\n${found}\nexpected:\n${expected}")
  endif()
endfunction()

set(access "ATTR{idProduct}==\"beef\", MODE=\"0660\", GROUP=\"plugdev\", TAG+=\"uaccess\"")
set(development "ATTR{idVendor}==\"dead\", ${access}\n")
expect_rules("${development}" 0xDEAD 0x0000)
expect_rules("${development}ATTR{idVendor}==\"1a2b\", ${access}\n" 0xDEAD 0x1A2B)
expect_rules("${development}ATTR{idVendor}==\"000c\", ${access}\n" 0xDEAD 0xC)

# Too large for an id, without 0x, no number.
foreach(vendor 0x1DEAD 1234 DEAD 0xZZ 0x)
  execute_process(
    COMMAND ${CMAKE_COMMAND} -P ${CMAKE_CURRENT_LIST_DIR}/WritePanelRules.cmake ${workDir}/refused.rules ${vendor}
    ERROR_VARIABLE refusal RESULT_VARIABLE status)
  if(status EQUAL 0 OR NOT refusal MATCHES "${vendor} is no USB vendor id: write 0x and one")
    message(SEND_ERROR "'${vendor}': status ${status}, ${refusal}")
  endif()
endforeach()
