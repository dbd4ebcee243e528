// What the built libMorvaneHostUsb.so needs, leaves open and shows, read off the file
// with readelf and nm.

#include <algorithm>
#include <array>
#include <cstdio>
#include <memory>
#include <regex>
#include <sstream>
#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace Vantor {
namespace {

using Lines = std::vector<std::string>;

Lines outputOf(const std::string& command)
{
    const std::unique_ptr<std::FILE, int (*)(std::FILE*)> pipe(popen(command.c_str(), "r"), pclose);
    EXPECT_NE(pipe, nullptr) << command;
    std::string output;
    std::array<char, 4096> chunk{};
    for (std::size_t got = 0; pipe != nullptr && (got = std::fread(chunk.data(), 1, chunk.size(), pipe.get())) != 0;)
        output.append(chunk.data(), got);
    Lines lines;
    std::istringstream stream(output);
    for (std::string line; std::getline(stream, line);)
        lines.push_back(line);
    EXPECT_FALSE(lines.empty()) << command << " printed nothing";
    return lines;
}

// The bracketed names of one kind of entry in the dynamic section.
Lines dynamicEntries(const std::string& kind)
{
    const std::regex pattern("\\(" + kind + "\\).*\\[(.*)\\]");
    Lines names;
    for (const std::string& line : outputOf(MORVANE_READELF " -dW " MORVANE_SHARED_OBJECT)) {
        std::smatch match;
        if (std::regex_search(line, match, pattern))
            names.push_back(match[1]);
    }
    return names;
}

// Demangled dynamic symbols, without address, kind and version.
Lines symbols(const std::string& selection)
{
    const std::regex pattern("^[0-9a-f ]*[A-Za-z] (.*)$");
    Lines names;
    for (const std::string& line : outputOf(MORVANE_NM " -DC " + selection + " " MORVANE_SHARED_OBJECT)) {
        std::smatch match;
        EXPECT_TRUE(std::regex_match(line, match, pattern)) << line;
        names.push_back(match[1]);
    }
    return names;
}

Lines defined()
{
    return symbols("--defined-only");
}

Lines undefined()
{
    return symbols("--undefined-only");
}

// The value of one line of the file's header.
std::string headerEntry(const std::string& name)
{
    const std::regex pattern(" *" + name + ": *(.*)");
    for (const std::string& line : outputOf(MORVANE_READELF " -hW " MORVANE_SHARED_OBJECT)) {
        std::smatch match;
        if (std::regex_match(line, match, pattern))
            return match[1];
    }
    return "";
}

// The class or function directly inside the namespace that a symbol belongs to.
std::string ownerOf(const std::string& symbol)
{
    static const std::regex pattern("^(?:(?:typeinfo|typeinfo name|vtable|guard variable) for |(?:non-)?virtual thunk "
                                    "to )?Vantor::(\\w+)(?:[:([].*)?$");
    std::smatch match;
    return std::regex_match(symbol, match, pattern) ? match[1].str() : "";
}

Lines ownedBy(const Lines& names, const std::string& owner)
{
    Lines owned;
    std::copy_if(names.begin(), names.end(), std::back_inserter(owned),
                 [&owner](const std::string& name) { return ownerOf(name) == owner; });
    return owned;
}

} // namespace

TEST(SharedObject, soname_isThatOfMajorVersion1)
{
    EXPECT_EQ(dynamicEntries("SONAME"), (Lines{"libMorvaneHostUsb.so.1"}));
}

TEST(SharedObject, file_carriesTheWholeVersion)
{
    const std::string file = MORVANE_SHARED_OBJECT;
    EXPECT_EQ(file.substr(file.rfind('/') + 1), "libMorvaneHostUsb.so.1.2.1");
}

// What the build was asked for stands beside what came out of it.
TEST(SharedObject, file_isForTheProcessorAskedFor)
{
    const std::string processor = MORVANE_PROCESSOR;
    if (processor == "armv7l") {
        EXPECT_EQ(headerEntry("Class"), "ELF32");
        EXPECT_EQ(headerEntry("Machine"), "ARM");
        EXPECT_THAT(headerEntry("Flags"), testing::HasSubstr("hard-float ABI"));
        EXPECT_EQ(sizeof(void*), 4u);
    } else {
        EXPECT_EQ(headerEntry("Class"), sizeof(void*) == 8 ? "ELF64" : "ELF32") << processor;
    }
}

TEST(SharedObject, needs_libusbAndTheRuntimeAlone)
{
    const Lines needed = dynamicEntries("NEEDED");
    EXPECT_THAT(needed, testing::Contains("libusb-1.0.so.0"));
    const std::regex allowed("libusb-1\\.0\\.so\\.0|(libstdc\\+\\+|libgcc_s|libm|libc)\\.so\\.\\d+");
    for (const std::string& name : needed)
        EXPECT_TRUE(std::regex_match(name, allowed)) << name;
}

TEST(SharedObject, protocolLibrary_isLeftToTheProcess)
{
    const Lines open = undefined();
    EXPECT_FALSE(ownedBy(open, "PacketPacker").empty());
    EXPECT_FALSE(ownedBy(open, "PackedPacketParser").empty());
    const Lines own = defined();
    EXPECT_EQ(ownedBy(own, "PacketPacker"), Lines{});
    // An interface without an implementation of its own: every object that derives
    // from it brings these two.
    for (const std::string& name : ownedBy(own, "PackedPacketParser"))
        EXPECT_THAT(name,
                    testing::MatchesRegex("(typeinfo|typeinfo name|vtable) for Vantor::PackedPacketParser::Observer"));
}

TEST(SharedObject, undefinedSymbols_belongToTheProtocolLibraryOrTheSystem)
{
    for (const std::string& name : undefined()) {
        const std::string owner = ownerOf(name);
        EXPECT_TRUE(owner.empty() || owner == "PacketPacker" || owner == "PackedPacketParser") << name;
    }
}

TEST(SharedObject, definedSymbols_belongToThePublicClasses)
{
    const Lines owners = {"UsbManager",  "UsbDevice",     "PriorityPacker", "ClientLcdBitmap", "LcdHelper",
                          "BitmapImage", "logLevel",      "setLogLevel",    "s_logMutex",      "PackedPacketParser",
                          "setLogSink",  "DeviceFailure", "LcdPicture"};
    for (const std::string& name : defined())
        EXPECT_THAT(owners, testing::Contains(ownerOf(name))) << name;
}

TEST(SharedObject, innerClasses_areHidden)
{
    const Lines own = defined();
    for (const char* owner : {"UsbMessageQueue", "UsbMessage", "PacketQueue", "TransferAccount", "EventPump",
                              "DeviceCounters", "StatisticsBook", "PackerCounts", "AddingTimes", "LogOutput"})
        EXPECT_EQ(ownedBy(own, owner), Lines{});
}

// Nobody outside can call them.
TEST(SharedObject, privateHelpers_areHidden)
{
    const Lines own = defined();
    for (const char* name : {"UsbManager::s_instance", "UsbManager::addDevice(", "UsbManager::runWorkerPass(",
                             "UsbManager::dispatch(", "UsbDevice::assignIdentity(", "UsbDevice::handleStatus(",
                             "UsbDevice::sendMainChunk(", "UsbDevice::enterStatistics(", "PriorityPacker::_queueOf(",
                             "PriorityPacker::_packSlice(", "PriorityPacker::readStatistics("})
        EXPECT_THAT(own, testing::Not(testing::Contains(testing::StartsWith(std::string("Vantor::") + name))));
}

// Private as well, but they tell what the library is at.
TEST(SharedObject, stateOfTheProcess_canBeLookedAt)
{
    const Lines own = defined();
    for (const char* name :
         {"Vantor::UsbManager::s_usbManager", "Vantor::UsbManager::s_usbManagerMutex", "Vantor::UsbDevice::s_usedUids",
          "Vantor::UsbDevice::s_usedIds", "Vantor::UsbDevice::s_idMutex", "Vantor::UsbManager::workerThread()",
          "Vantor::UsbManager::receiveMsgThread()", "Vantor::logLevel", "Vantor::s_logMutex"})
        EXPECT_THAT(own, testing::Contains(name));
}

TEST(SharedObject, everyPublicOperation_isThere)
{
    const Lines own = defined();
    for (const char* name : {
             "Vantor::UsbManager::getUsbManager()",
             "Vantor::UsbManager::destroyUsbManager()",
             "Vantor::UsbManager::initialise()",
             "Vantor::UsbManager::registerObserver(Vantor::UsbManager::Observer*)",
             "Vantor::UsbManager::unregisterObserver(Vantor::UsbManager::Observer*)",
             "Vantor::UsbManager::getDevice(unsigned short const&)",
             "Vantor::UsbManager::getDeviceList() const",
             "Vantor::UsbManager::getDeviceListSafe() const",
             "Vantor::UsbManager::closeAllDevices()",
             "Vantor::UsbManager::sync()",
             "Vantor::UsbManager::getVersion[abi:cxx11]()",
             "Vantor::UsbManager::getVersionMajor()",
             "Vantor::UsbManager::getVersionMinor()",
             "Vantor::UsbManager::getVersionPatch()",
             "Vantor::UsbDevice::getPacker()",
             "Vantor::UsbDevice::getDeviceInfo() const",
             "Vantor::UsbDevice::isUpdating() const",
             "Vantor::UsbDevice::getUid() const",
             "Vantor::UsbDevice::getId() const",
             "Vantor::UsbDevice::getPortNumbers()",
             "Vantor::UsbDevice::getSentData() const",
             "Vantor::UsbDevice::getReceivedData() const",
             "Vantor::UsbDevice::sync(int)",
             "Vantor::UsbDevice::getStatistics() const",
             "Vantor::UsbDevice::getFailure() const",
             "Vantor::UsbManager::getStatistics() const",
             "Vantor::DeviceFailure::nameOf(Vantor::DeviceFailure::Operation)",
             "Vantor::DeviceFailure::toString[abi:cxx11]() const",
             "Vantor::PriorityPacker::PriorityPacker(unsigned int const&)",
             "Vantor::PriorityPacker::addStructData(void const*, unsigned int const&, Vantor::PacketType const&)",
             "Vantor::PriorityPacker::addStructData(void const*, unsigned int const&, Vantor::PacketType const&, "
             "unsigned int const&)",
             "Vantor::PriorityPacker::clearData()",
             "Vantor::PriorityPacker::prepareNextPacket()",
             "Vantor::PriorityPacker::hasMoreData() const",
             "Vantor::PriorityPacker::drawBitmapData(Vantor::ClientLcdBitmap const&)",
             "Vantor::PriorityPacker::drawBitmapData(Vantor::ClientLcdBitmap&&)",
             "Vantor::PriorityPacker::lockLcd(unsigned short)",
             "Vantor::PriorityPacker::unlockLcd(unsigned short)",
             "Vantor::PriorityPacker::setObserver(Vantor::PriorityPacker::Observer*)",
             "Vantor::PriorityPacker::flattenLcdImage(unsigned short)",
             "Vantor::PriorityPacker::compressImage(unsigned int const*, int, int, int, int, "
             "Vantor::ClientLcdBitmap&)",
             "Vantor::PriorityPacker::encode(unsigned int, unsigned char)",
             "Vantor::PriorityPacker::addBitmapDataToPacket(Vantor::ClientLcdBitmap const&)",
             "Vantor::PriorityPacker::addBitmapDataToPacketEncoded(Vantor::ClientLcdBitmap const&)",
             "Vantor::LcdHelper::addPixel(unsigned char*, int, int, int, int, int)",
             "Vantor::LcdHelper::ditherImage(unsigned char*, int, int, Vantor::LcdHelper::DitherType, int)",
             "Vantor::LcdHelper::compositeToLcd(unsigned char*, unsigned char const*, unsigned int, unsigned int, "
             "unsigned int, unsigned int, int, int, int)",
             "Vantor::LcdHelper::compositeToLcd(Vantor::LcdBitmap*, unsigned char const*, unsigned int, "
             "unsigned int, int, int, int)",
             "Vantor::LcdHelper::compositeToLcd(Vantor::TransLcdBitmap*, unsigned char const*, unsigned int, "
             "unsigned int, int, int, int)",
             "Vantor::LcdHelper::compositeToLcd(Vantor::BitmapImage*, Vantor::BitmapImage const&, int, int)",
             "Vantor::BitmapImage::getRgbPixel(int, int) const",
             "Vantor::BitmapImage::get1BitPixel(int, int) const",
             "Vantor::ClientLcdBitmap::ClientLcdBitmap(unsigned char, unsigned char, unsigned char)",
             "Vantor::ClientLcdBitmap::ClientLcdBitmap(Vantor::ClientLcdBitmap const&)",
             "Vantor::setLogLevel(Vantor::LogLevel::Level)",
             "Vantor::logLevel",
             "Vantor::s_logMutex",
             "vtable for Vantor::PriorityPacker",
             "typeinfo for Vantor::PriorityPacker::Observer",
         })
        EXPECT_THAT(own, testing::Contains(name));
    // Its callback type spells out std::function.
    EXPECT_THAT(own, testing::Contains(testing::StartsWith("Vantor::UsbDevice::startFirmwareUpgrade(")));
    EXPECT_THAT(own, testing::Contains(testing::StartsWith("Vantor::setLogSink(")));
}

} // namespace Vantor
