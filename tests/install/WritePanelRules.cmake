# cmake -P WritePanelRules.cmake FILE VENDOR
include(${CMAKE_CURRENT_LIST_DIR}/../../cmake/PanelRules.cmake)
morvane_write_panel_rules(${CMAKE_ARGV3} ${CMAKE_ARGV4})
