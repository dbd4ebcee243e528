#include "panelfleet/FleetImage.h"

#include "panelctl/terminal/Wording.h"
#include "panelfleet/FleetFailure.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdio>
#include <memory>
#include <stdexcept>

#include <openssl/evp.h>
#include <sys/stat.h>

namespace Vantor {

namespace {

std::string readImage(const std::string& path)
{
    const auto refuse = [&path](const std::string& why) {
        return FleetFailure(FleetExit::Usage, FailureKind::usage, quote(path) + " " + why);
    };
    struct stat status {};
    // A pipe would be waited for.
    if (stat(path.c_str(), &status) == 0 && !S_ISREG(status.st_mode))
        throw refuse("is no file");
    const std::unique_ptr<std::FILE, int (*)(std::FILE*)> file(std::fopen(path.c_str(), "re"), std::fclose);
    if (!file)
        throw refuse("can't be read: " + describeError(errno));
    std::string content(FleetImage::maxSize + 1, '\0');
    content.resize(std::fread(content.data(), 1, content.size(), file.get()));
    if (std::ferror(file.get()) != 0)
        throw refuse("can't be read: " + describeError(errno));
    if (content.empty())
        throw refuse("is empty");
    if (content.size() > FleetImage::maxSize)
        throw refuse("has more than the 16 MiB of an image");
    return content;
}

std::string sumOfImage(const std::string& image)
{
    std::array<unsigned char, EVP_MAX_MD_SIZE> sum{};
    unsigned int size = 0;
    if (EVP_Digest(image.data(), image.size(), sum.data(), &size, EVP_sha256(), nullptr) != 1)
        throw std::runtime_error("no SHA-256 can be made");
    return formatHexBytes(sum.data(), size);
}

std::string inLowerCase(std::string digits)
{
    std::transform(digits.begin(), digits.end(), digits.begin(), [](char digit) {
        return digit >= 'A' && digit <= 'F' ? static_cast<char>(digit - 'A' + 'a') : digit;
    });
    return digits;
}

} // namespace

FleetImage FleetImage::make(const CommandLine& line)
{
    FleetImage image;
    auto& properties = image.command.userProperties;
    properties.emplace_back("id", line.id);
    const std::string& path = line.mainFile.empty() ? line.servoFile : line.mainFile;
    if (!path.empty()) {
        image.command.payload = readImage(path);
        image.size = static_cast<std::uint32_t>(image.command.payload.size());
        const std::string sum = sumOfImage(image.command.payload);
        (line.mainFile.empty() ? image.servoSum : image.mainSum) = sum;
        properties.emplace_back("sha256", sum);
        properties.emplace_back("mcu", line.mainFile.empty() ? "servo" : "main");
        return image;
    }
    const std::pair<const char*, const std::string&> names[] = {{"main", line.fileMain},
                                                                {"servo", line.fileServo},
                                                                {"sha256-main", line.sumMain},
                                                                {"sha256-servo", line.sumServo}};
    for (const auto& [name, value] : names) {
        if (!value.empty())
            properties.emplace_back(name, value);
    }
    image.mainSum = inLowerCase(line.sumMain);
    image.servoSum = inLowerCase(line.sumServo);
    return image;
}

} // namespace Vantor
