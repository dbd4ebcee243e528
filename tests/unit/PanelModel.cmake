if(TARGET PanelModel)
  morvane_add_test(panelModelTests
    SOURCES
      BootLoaderTest.cpp
      FaultPlanTest.cpp
      LcdOptionTest.cpp
      PanelCommandTest.cpp
      PanelDescriptorsTest.cpp
      PanelModelBusTest.cpp
      PanelModelFaultTest.cpp
      PanelModelScreenTest.cpp
      PanelModelTest.cpp
      PanelOutboxTest.cpp
      PanelScreenTest.cpp
      SliceDecoderTest.cpp
      WireDecoderTest.cpp
    LIBRARIES PanelModel GTest::gmock_main
    LABELS unit)

  morvane_add_test(panelPicturesTests
    SOURCES
      PngWriterTest.cpp
      ScreenTextTest.cpp
    LIBRARIES PanelPictures PkgConfig::libpng GTest::gmock_main
    LABELS unit)
endif()
