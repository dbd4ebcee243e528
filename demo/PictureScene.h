#pragma once

#include "panelctl/picture/PictureLayers.h"
#include "panelctl/session/Panel.h"

#include <cstdint>
#include <string>
#include <vector>

namespace Vantor {

class Drawing;
class Output;
class Session;

// Pictures on the LCDs of every panel, dithered in every way, as packed bits and as
// run-length words; on one LCD several layers, one over the other, behind a lock.
class PictureScene {
public:
    PictureScene(Session& session, Output& output) : m_session(session), m_output(output) {}

    // Throws Failure when a panel does not take a picture.
    void play();

private:
    struct Picture {
        const char* name;
        const char* dithering;
        LcdHelper::DitherType type;
        PictureLayers::Form form;
        std::uint16_t lcd;
        GreyPicture picture;
    };

    void drawFirst(const Panel& panel);
    void drawSecond(const Panel& panel);
    void draw(const Panel& panel, const Picture& picture);
    void drawWindows(const Panel& panel, std::uint16_t lcd);
    double await(Drawing& drawing);

    Session& m_session;
    Output& m_output;
};

} // namespace Vantor
