// Messages that draw: a packet limit (16 bits), then lines "name=value" up to an empty one,
// the user properties, then the payload. What comes of it can be sent, or has a reason.
#include "panel2mqtt/desk/PictureOrder.h"
#include "panelctl/picture/PacketForecast.h"
#include "tests/fuzz/Require.h"

#include <cstddef>
#include <cstdint>
#include <string>
#include <variant>

using namespace Vantor;

namespace {

Message readMessage(const std::string& text)
{
    Message message;
    std::size_t begin = 0;
    for (;;) {
        const std::size_t end = text.find('\n', begin);
        if (end == std::string::npos || end == begin) {
            message.payload = text.substr(end == begin ? begin + 1 : begin);
            return message;
        }
        const std::string line = text.substr(begin, end - begin);
        const std::size_t sign = line.find('=');
        message.userProperties.emplace_back(line.substr(0, sign),
                                            sign != std::string::npos ? line.substr(sign + 1) : "");
        begin = end + 1;
    }
}

void checkPicture(const PictureOrder::Picture& picture, std::uint16_t packetLimit)
{
    std::size_t bytes = 0;
    for (const ClientLcdBitmap& layer : picture.layers) {
        require(layer.lcd == 7 && layer.width != 0 && layer.height != 0, "a layer with pixels");
        require(layer.y + layer.height <= 256, "above row 256");
        require(layer.encoded != 0 || layer.width % 8 == 0, "rows of whole bytes");
        bytes += sizeof layer + layer.size();
    }
    require(bytes == picture.bytes, "what it takes is counted");
    DeviceInformation panel{};
    panel.maxPacketSize = packetLimit;
    require(PacketForecast(panel, picture.layers).isComplete(), "all of it can leave");
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    if (size < 2)
        return 0;
    const auto packetLimit = static_cast<std::uint16_t>(data[0] | data[1] << 8);
    const Message message = readMessage({reinterpret_cast<const char*>(data + 2), size - 2});
    const auto made = PictureOrder::makePicture(message, 7, packetLimit);
    if (const auto* const picture = std::get_if<PictureOrder::Picture>(&made)) {
        require(!picture->layers.empty(), "at least one layer");
        checkPicture(*picture, packetLimit);
    } else {
        require(!std::get<Answer>(made).reason.empty(), "an answer has a reason");
    }
    return 0;
}
