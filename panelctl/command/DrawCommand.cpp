#include "panelctl/command/DrawCommand.h"

#include "panelctl/command/Drawing.h"
#include "panelctl/picture/PngReader.h"
#include "panelctl/session/PanelJson.h"
#include "panelctl/session/Session.h"
#include "panelctl/terminal/Failure.h"
#include "panelctl/terminal/Output.h"
#include "panelctl/terminal/Report.h"
#include "panelctl/terminal/Wording.h"

#include <cinttypes>

namespace Vantor {

namespace {

// A slice's top row is one byte, and wraps.
constexpr unsigned int lcdRows = 256;

std::vector<ClientLcdBitmap> makeLayers(const DrawCommand::Options& options)
{
    if (options.y + options.height > lcdRows)
        throw Failure(ExitCode::Usage, "draw: " + std::to_string(options.height) + " rows from row " +
                                           std::to_string(options.y) +
                                           " on reach past row 255, the last one that an "
                                           "LCD can have.\nMake it lower with --size, or "
                                           "place it higher with --at.");
    GreyPicture picture = PngReader::read(options.file).scaledInto(options.width, options.height);
    if (options.invert)
        picture.invert();
    // Before it gets its margins: white that takes errors on wraps and turns black.
    picture.dither(options.dither, options.threshold);
    const std::uint8_t margin = options.invert ? GreyPicture::black : GreyPicture::white;
    return picture.centredOn(options.width, options.height, margin)
        .makeLayers(options.lcd, options.x, options.y,
                    options.encoded ? LcdPicture::Form::RunLength : LcdPicture::Form::Raw);
}

class DrawnReport final : public Report {
public:
    DrawnReport(const DrawCommand::Options& options, bool isRaw, const Panel& panel, const PacketForecast& forecast,
                std::chrono::nanoseconds time)
        : m_options(options), m_isRaw(isRaw), m_panel(panel), m_forecast(forecast), m_time(time)
    {}

    std::string asText() const override
    {
        const double milliseconds = std::chrono::duration<double, std::milli>(m_time).count();
        return formatText("%s has taken %s of %s for LCD %u, %s: %" PRIu64 " bytes in %s, in %.1f ms\n",
                          m_panel.getName().c_str(), formatNumber(m_options.height, "row").c_str(),
                          formatNumber(m_options.width, "pixel").c_str(), static_cast<unsigned int>(m_options.lcd),
                          m_isRaw ? "raw" : "as run-length words", m_forecast.getBytes(),
                          formatNumber(m_forecast.getPackets(), "packet").c_str(), milliseconds);
    }

    JsonObject asJson() const override
    {
        JsonObject object("drawn");
        addName(object, m_panel);
        object.add("lcd", m_options.lcd)
            .add("x", m_options.x)
            .add("y", m_options.y)
            .add("width", m_options.width)
            .add("height", m_options.height)
            .add("form", m_isRaw ? "raw" : "run-length")
            .add("bytes", m_forecast.getBytes())
            .add("packets", m_forecast.getPackets())
            .add("seconds", toSeconds(m_time));
        return object;
    }

private:
    const DrawCommand::Options& m_options;
    const bool m_isRaw;
    const Panel& m_panel;
    const PacketForecast& m_forecast;
    const std::chrono::nanoseconds m_time;
};

} // namespace

DrawCommand::DrawCommand(std::chrono::nanoseconds timeout, const Options& options)
    : m_timeout(timeout), m_options(options), m_layers(makeLayers(options))
{}

void DrawCommand::run(Session& session, Output& output)
{
    const Panel panel = session.awaitInformation(session.choosePanel(m_options.panel), m_timeout);
    Drawing drawing(panel, m_layers);
    refuseUnsendable(panel, drawing);

    const auto start = Session::Clock::now();
    drawing.hold();
    drawing.release();
    drawing.await(session, m_timeout);
    output.report(DrawnReport(m_options, m_layers.front().encoded == 0, panel, drawing.getForecast(),
                              Session::Clock::now() - start));
}

// Only a row of run-length words can be too long: of packed pixels it has 32 bytes at most.
void DrawCommand::refuseUnsendable(const Panel& panel, const Drawing& drawing) const
{
    if (drawing.getForecast().isComplete())
        return;
    throw Failure(ExitCode::Failed, FailureKind::tooLarge,
                  "the picture can't be sent to " + panel.getName() + " as run-length words: a row of it takes " +
                      std::to_string(PacketForecast::getLongestRow(m_layers.front())) +
                      " bytes, more than a slice holds under its packet limit of " +
                      std::to_string(panel.getPacketLimit()) + " bytes; it takes a limit of " +
                      std::to_string(PacketForecast::findNeededLimit(m_layers)) +
                      ".\nIt would never leave and would hold back everything behind it, so it was not queued. " +
                      (m_options.encoded ? "Send it without --encoded." : "Make it narrower with --size."));
}

} // namespace Vantor
