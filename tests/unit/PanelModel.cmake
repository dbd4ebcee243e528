if(TARGET PanelModel)
  morvane_add_test(panelModelTests
    SOURCES
      FaultPlanTest.cpp
      PanelCommandTest.cpp
      PanelDescriptorsTest.cpp
      PanelModelBusTest.cpp
      PanelModelFaultTest.cpp
      PanelModelTest.cpp
      PanelOutboxTest.cpp
      WireDecoderTest.cpp
    LIBRARIES PanelModel GTest::gmock_main
    LABELS unit)
endif()
