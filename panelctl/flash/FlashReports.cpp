#include "panelctl/flash/FlashReports.h"

#include "panelctl/flash/ProgressBar.h"
#include "panelctl/session/PanelJson.h"
#include "panelctl/terminal/Wording.h"

namespace Vantor {

namespace {

std::string describeTime(std::chrono::seconds time)
{
    if (time < std::chrono::minutes(2))
        return std::to_string(time.count()) + " s";
    return std::to_string(std::chrono::ceil<std::chrono::minutes>(time).count()) + " min";
}

std::string describeImage(const std::optional<FirmwareImage>& image)
{
    return image ? image->describe() : "left as it is";
}

std::optional<JsonObject> makeObject(const std::optional<FirmwareImage>& image)
{
    if (!image)
        return std::nullopt;
    JsonObject object;
    object.add("file", image->getPath())
        .add("size", image->getSize())
        .add("chunks", image->getChunks())
        .add("crc32", formatHex(image->getCrc(), 8));
    return object;
}

} // namespace

std::string PlanReport::asText() const
{
    return "panel     " + m_panel.getUidText() + " (" + m_panel.getPlace() + "), " + m_panel.getDescription() +
           "\nmain      " + describeImage(m_images.main) + "\nservo     " + describeImage(m_images.servo) +
           "\ntime      about " + describeTime(m_images.estimateTime()) + "\n";
}

JsonObject PlanReport::asJson() const
{
    JsonObject object("plan");
    addName(object, m_panel);
    object.add("main", makeObject(m_images.main))
        .add("servo", makeObject(m_images.servo))
        .add("bytes", m_images.getTotal())
        .add("seconds", m_images.estimateTime().count());
    return object;
}

std::string ProgressReport::asText() const
{
    return formatText("%3u %%  %u of %u bytes, %s image, %s\n", m_meter.getPercentage(), m_meter.getDone(),
                      m_meter.getTotal(), nameImage(), ProgressBar::formatRate(m_meter.getRate()).c_str());
}

JsonObject ProgressReport::asJson() const
{
    JsonObject object("progress");
    object.add("percent", m_meter.getPercentage())
        .add("written", m_meter.getDone())
        .add("bytes", m_meter.getTotal())
        .add("image", nameImage())
        .add("bytesPerSecond", m_meter.getRate());
    return object;
}

const char* ProgressReport::nameImage() const
{
    return nameOf(m_images.locate(m_meter.getDone()).board);
}

std::string WrittenReport::asText() const
{
    const std::string troubles = m_replies.describeTroubles();
    return formatText("written   %s, each chunk confirmed, in %.1f s\n",
                      formatNumber(m_images.getTotal(), "byte").c_str(),
                      std::chrono::duration<double>(m_time).count()) +
           (troubles.empty() ? "" : "replies   " + troubles + "\n");
}

JsonObject WrittenReport::asJson() const
{
    std::vector<JsonObject> refusals;
    for (const auto& [command, number] : m_replies.getRefusals()) {
        JsonObject refusal;
        refusal.add("code", command).add("text", describeReply(command)).add("number", number);
        refusals.push_back(std::move(refusal));
    }
    JsonObject object("written");
    object.add("bytes", m_images.getTotal())
        .add("seconds", toSeconds(m_time))
        .add("repeated", m_replies.getRepeated())
        .add("refusals", refusals);
    return object;
}

std::string WaitingReport::asText() const
{
    return "waiting   for the panel to answer (" + formatSeconds(m_limit) + " at most)\n";
}

JsonObject WaitingReport::asJson() const
{
    JsonObject object("waiting");
    object.add("seconds", toSeconds(m_limit));
    return object;
}

std::string AnswersReport::asText() const
{
    return "answers   yes\n";
}

JsonObject AnswersReport::asJson() const
{
    return JsonObject("answers");
}

} // namespace Vantor
