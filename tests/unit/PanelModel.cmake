if(TARGET PanelModel)
  morvane_add_test(panelModelTests
    SOURCES
      BootFaultPlanTest.cpp
      BootLoaderFaultTest.cpp
      BootLoaderTest.cpp
      BootLoaderTimeTest.cpp
      CommandExecutionTest.cpp
      CommandTimelineTest.cpp
      ControlEndpointTest.cpp
      FaultPlanTest.cpp
      FlashReportTest.cpp
      LcdOptionTest.cpp
      PacketLimitTest.cpp
      PanelCommandTest.cpp
      PanelDescriptorsTest.cpp
      PanelModelBusTest.cpp
      PanelModelFaultTest.cpp
      PanelModelFirmwareTest.cpp
      PanelModelScreenTest.cpp
      PanelModelTest.cpp
      PanelOutboxTest.cpp
      PanelScreenTest.cpp
      PastViolationsTest.cpp
      SliceDecoderTest.cpp
      UserTextTest.cpp
      WireDecoderTest.cpp
    LIBRARIES PanelModel GTest::gmock_main
    LABELS unit)

  morvane_add_test(flashFolderTests
    SOURCES
      FlashFolderTest.cpp
      OutputFileTest.cpp
    LIBRARIES FlashFolder OutputFile GTest::gmock_main
    LABELS unit)

  morvane_add_test(kernelBusTests
    SOURCES
      CommandInputTest.cpp
      KernelBusTest.cpp
      UsbIpMessageTest.cpp
      UsbIpPanelTest.cpp
      VhciPortsTest.cpp
    LIBRARIES KernelBus GTest::gmock_main
    LABELS unit)

  morvane_add_test(panelPicturesTests
    SOURCES
      PngWriterTest.cpp
      ScreenTextTest.cpp
    LIBRARIES PanelPictures PkgConfig::libpng GTest::gmock_main
    LABELS unit)
endif()
