# Neither a header too few nor one too many, and no archive of inner objects.
set(expected
  libMorvaneHostUsb/BitmapImage.h
  libMorvaneHostUsb/ClientLcdBitmap.h
  libMorvaneHostUsb/DeviceFailure.h
  libMorvaneHostUsb/DeviceStatistics.h
  libMorvaneHostUsb/Export.h
  libMorvaneHostUsb/LcdHelper.h
  libMorvaneHostUsb/LcdPicture.h
  libMorvaneHostUsb/Log.h
  libMorvaneHostUsb/ManagerStatistics.h
  libMorvaneHostUsb/PacketQueue.h
  libMorvaneHostUsb/PriorityPacker.h
  libMorvaneHostUsb/ThreadAnnotations.h
  libMorvaneHostUsb/UsbDevice.h
  libMorvaneHostUsb/UsbManager.h
  libMorvaneHostUsb/UsbMessage.h
  libMorvaneHostUsb/Version.h
  protocol/DataPacketUnion.h
  protocol/DeviceInformation.h
  protocol/FirmwareData.h
  protocol/FirmwareUpgradeCommand.h
  protocol/FirmwareUpgradeRequest.h
  protocol/LcdBitmap.h
  protocol/PackedPacketParser.h
  protocol/PacketHeader.h
  protocol/PacketPacker.h
  protocol/PacketType.h
  protocol/ReqDeviceInfo.h
  protocol/TransLcdBitmap.h
  protocol/Visibility.h
  wire/PanelLink.h
  wire/RecordHeader.h
  wire/SliceHeader.h
)
file(GLOB_RECURSE found RELATIVE ${prefix}/${includeDir}/morvane ${prefix}/${includeDir}/*)
list(SORT found)
if(NOT found STREQUAL expected)
  message(FATAL_ERROR "installed headers:\n${found}\nexpected:\n${expected}")
endif()

set(expected
  libMorvaneHostUsb.a
  libMorvaneHostUsb.so
  libMorvaneHostUsb.so.1
  libMorvaneHostUsb.so.1.2.1
  libMorvaneProtocol.a
  libMorvaneProtocol.so
  libMorvaneProtocol.so.1
  libMorvaneProtocol.so.1.2.1
)
file(GLOB found RELATIVE ${prefix}/${libDir} ${prefix}/${libDir}/lib*)
list(SORT found)
if(NOT found STREQUAL expected)
  message(FATAL_ERROR "installed libraries:\n${found}\nexpected:\n${expected}")
endif()

foreach(file IN LISTS toolFiles)
  if(NOT EXISTS ${prefix}/${file})
    message(FATAL_ERROR "not installed: ${file}")
  endif()
endforeach()

file(STRINGS ${prefix}/lib/udev/rules.d/70-morvane-panel.rules rules REGEX "idVendor")
set(expected
  "ATTR{idVendor}==\"dead\", ATTR{idProduct}==\"beef\", MODE=\"0660\", GROUP=\"plugdev\", TAG+=\"uaccess\"")
list(GET rules 0 found)
if(NOT found STREQUAL expected)
  message(FATAL_ERROR "udev rule for development panels:\n${found}\nexpected:\n${expected}")
endif()
