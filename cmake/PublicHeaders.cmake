# What an application may include. LogOutput.h, TransferAccount.h, EventPump.h and
# UsbMessageQueue.h are the library's own.
set(morvaneProtocolHeaders
  protocol/DataPacketUnion.h
  protocol/DeviceInformation.h
  protocol/FirmwareData.h
  protocol/FirmwareUpgradeCommand.h
  protocol/FirmwareUpgradeRequest.h
  protocol/PackedPacketParser.h
  protocol/PacketHeader.h
  protocol/PacketPacker.h
  protocol/PacketType.h
  protocol/PanelLink.h
  protocol/ReqDeviceInfo.h
  protocol/Visibility.h
)
set(morvaneLibraryHeaders
  libMorvaneHostUsb/ClientLcdBitmap.h
  libMorvaneHostUsb/Export.h
  libMorvaneHostUsb/Log.h
  libMorvaneHostUsb/PacketQueue.h
  libMorvaneHostUsb/PriorityPacker.h
  libMorvaneHostUsb/ThreadAnnotations.h
  libMorvaneHostUsb/UsbDevice.h
  libMorvaneHostUsb/UsbManager.h
  libMorvaneHostUsb/UsbMessage.h
)
