#include "panel2mqtt/desk/FlashOrder.h"

#include <algorithm>
#include <string>
#include <string_view>
#include <utility>

namespace Vantor {

namespace {

constexpr std::size_t longestName = 255;

Answer refuseFlash(const std::string& reason)
{
    return {Answer::Word::Refused, reason};
}

// In lower case; nothing if it is none.
std::optional<std::string> readSum(std::string text)
{
    const auto lower = [](char c) { return c >= 'A' && c <= 'F' ? static_cast<char>(c - 'A' + 'a') : c; };
    std::transform(text.begin(), text.end(), text.begin(), lower);
    const bool isSum = text.size() == 64 && text.find_first_not_of("0123456789abcdef") == std::string::npos;
    return isSum ? std::optional(std::move(text)) : std::nullopt;
}

std::optional<Answer> refuseSum(const Message& message, const std::string& property, const ShelfImage& image)
{
    const std::string* const given = message.findProperty(property);
    if (given == nullptr)
        return std::nullopt;
    const auto sum = readSum(*given);
    if (!sum)
        return refuseFlash(property + " must be 64 hexadecimal digits");
    if (*sum != image.sha256)
        return refuseFlash(property + " is not that of the image, which is " + image.sha256);
    return std::nullopt;
}

// Below the folder by its letters; links are the shelf's concern.
bool isPlainName(std::string_view name)
{
    if (name.empty() || name.size() > longestName ||
        std::any_of(name.begin(), name.end(), [](char c) { return static_cast<unsigned char>(c) < 0x20 || c == 0x7F; }))
        return false;
    for (std::size_t begin = 0; begin <= name.size();) {
        const std::size_t end = std::min(name.find('/', begin), name.size());
        const std::string_view part = name.substr(begin, end - begin);
        if (part.empty() || part == "." || part == "..")
            return false;
        begin = end + 1;
    }
    return true;
}

// Lest somebody believes in a sum that nobody looks at.
std::optional<Answer> refuseStray(const Message& message, std::initializer_list<const char*> properties,
                                  const std::string& why)
{
    for (const char* const property : properties) {
        if (message.findProperty(property) != nullptr)
            return refuseFlash(std::string(property) + ": " + why);
    }
    return std::nullopt;
}

FlashOrder::Result readPayload(const Message& message, FirmwareShelf& shelf)
{
    if (message.payload.size() > FlashOrder::maxImage)
        return Answer{Answer::Word::TooLarge, "an image has at most 16 MiB"};
    if (const auto stray = refuseStray(message, {"main", "servo", "sha256-main", "sha256-servo"},
                                       "for files; the payload is an image"))
        return *stray;
    const std::string* const mcu = message.findProperty("mcu");
    if (mcu != nullptr && *mcu != "main" && *mcu != "servo")
        return refuseFlash("mcu must be main or servo");
    if (message.findProperty("sha256") == nullptr)
        return refuseFlash("sha256 is missing, the image's SHA-256 in hexadecimal digits");
    auto kept = shelf.keep(message.payload);
    if (const auto* const reason = std::get_if<std::string>(&kept))
        return refuseFlash(*reason);
    auto& image = std::get<ShelfImage>(kept);
    if (const auto refusal = refuseSum(message, "sha256", image))
        return *refusal;
    FlashOrder::Images images;
    (mcu != nullptr && *mcu == "servo" ? images.servo : images.main) = std::move(image);
    return images;
}

std::variant<ShelfImage, Answer> readFile(const Message& message, const std::string& property, FirmwareShelf& shelf)
{
    const std::string& name = *message.findProperty(property);
    if (!isPlainName(name))
        return refuseFlash(property + " must be a file's name below the gateway's folder: no '/' in front, no '..'");
    auto fetched = shelf.fetch(name, FlashOrder::maxImage);
    if (const auto* const reason = std::get_if<std::string>(&fetched))
        return refuseFlash(property + ": " + *reason);
    auto& image = std::get<ShelfImage>(fetched);
    if (const auto refusal = refuseSum(message, "sha256-" + property, image))
        return *refusal;
    return std::move(image);
}

FlashOrder::Result readFiles(const Message& message, FirmwareShelf& shelf)
{
    if (const auto stray = refuseStray(message, {"mcu", "sha256"}, "for an image as the payload, which is empty"))
        return *stray;
    FlashOrder::Images images;
    for (const auto& [property, place] : {std::pair("main", &images.main), std::pair("servo", &images.servo)}) {
        if (message.findProperty(property) == nullptr) {
            if (const auto stray = refuseStray(message, {(std::string("sha256-") + property).c_str()}, "of no file"))
                return *stray;
            continue;
        }
        auto read = readFile(message, property, shelf);
        if (const auto* const refusal = std::get_if<Answer>(&read))
            return *refusal;
        *place = std::get<ShelfImage>(std::move(read));
    }
    if (!images.main && !images.servo)
        return refuseFlash("there is no image: it is the payload, or files named by main and servo");
    return images;
}

} // namespace

FlashOrder::Result FlashOrder::read(const Message& message, FirmwareShelf& shelf)
{
    return message.payload.empty() ? readFiles(message, shelf) : readPayload(message, shelf);
}

} // namespace Vantor
