#pragma once

#include "libMorvaneHostUsb/ClientLcdBitmap.h"
#include "libMorvaneHostUsb/LcdHelper.h"
#include "panelctl/command/Command.h"

#include <chrono>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace Vantor {

class Drawing;
class Panel;

// `panelctl draw`: a PNG file, dithered to black and white, on one LCD.
class DrawCommand : public Command {
public:
    struct Options {
        std::string file;
        std::optional<std::string> panel;
        std::uint16_t lcd = 0;
        unsigned int width = 144;
        unsigned int height = 168;
        std::uint8_t x = 0;
        std::uint8_t y = 0;
        LcdHelper::DitherType dither = LcdHelper::Stucki;
        int threshold = 128;
        bool invert = false;
        bool encoded = false;
    };

    // Reads the picture; throws Failure (usage) when it can't be had or does not fit an LCD.
    DrawCommand(std::chrono::nanoseconds timeout, const Options& options);
    void run(Session& session, Output& output) override;

private:
    void refuseUnsendable(const Panel& panel, const Drawing& drawing) const;

    std::chrono::nanoseconds m_timeout;
    Options m_options;
    std::vector<ClientLcdBitmap> m_layers;
};

} // namespace Vantor
