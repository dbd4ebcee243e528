#include "panelctl/flash/FirmwareImages.h"

#include <algorithm>

namespace Vantor {

namespace {

constexpr std::chrono::milliseconds chunkTime{110};
constexpr std::chrono::milliseconds requestTime{100};
constexpr std::chrono::milliseconds pauseAfterImage{700 - 110};

std::uint32_t sizeOf(const std::optional<FirmwareImage>& image)
{
    return image ? image->getSize() : 0;
}

std::uint32_t chunksOf(const std::optional<FirmwareImage>& image)
{
    return image ? image->getChunks() : 0;
}

} // namespace

std::uint32_t FirmwareImages::getTotal() const
{
    return sizeOf(main) + sizeOf(servo);
}

std::uint32_t FirmwareImages::getChunks() const
{
    return chunksOf(main) + chunksOf(servo);
}

FirmwareImages::Position FirmwareImages::locate(std::uint32_t bytes) const
{
    const std::uint32_t mainSize = sizeOf(main);
    if (bytes < mainSize || !servo)
        return {FirmwareData::MainMcu, std::min(bytes, mainSize), mainSize};
    return {FirmwareData::ServoMcu, std::min(bytes - mainSize, servo->getSize()), servo->getSize()};
}

std::string FirmwareImages::describePosition(std::uint32_t bytes) const
{
    const Position position = locate(bytes);
    return std::to_string(position.offset) + " of " + std::to_string(position.size) + " bytes of the " +
           nameOf(position.board) + " image";
}

// The main image's, too, until the first of the servo image's bytes tells that they are over.
std::chrono::milliseconds FirmwareImages::estimatePauses(std::uint32_t bytes) const
{
    const int images = (main && bytes <= main->getSize() ? 1 : 0) + (servo ? 1 : 0);
    return images * pauseAfterImage;
}

std::chrono::seconds FirmwareImages::estimateTime() const
{
    return std::chrono::ceil<std::chrono::seconds>(getChunks() * chunkTime + requestTime + estimatePauses(0));
}

const char* nameOf(FirmwareData::Board board)
{
    return board == FirmwareData::MainMcu ? "main" : "servo";
}

} // namespace Vantor
