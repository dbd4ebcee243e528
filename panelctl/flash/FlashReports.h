#pragma once

#include "panelctl/flash/FirmwareImages.h"
#include "panelctl/flash/FlashReplies.h"
#include "panelctl/flash/ProgressMeter.h"
#include "panelctl/session/Panel.h"
#include "panelctl/terminal/Report.h"

#include <chrono>

namespace Vantor {

// What `flash` says, step by step. Each refers to what it is given.

// What is going to be written.
class PlanReport final : public Report {
public:
    PlanReport(const Panel& panel, const FirmwareImages& images) : m_panel(panel), m_images(images) {}

    std::string asText() const override;
    JsonObject asJson() const override;

private:
    const Panel& m_panel;
    const FirmwareImages& m_images;
};

// How far it has come.
class ProgressReport final : public Report {
public:
    ProgressReport(const ProgressMeter& meter, const FirmwareImages& images) : m_meter(meter), m_images(images) {}

    std::string asText() const override;
    JsonObject asJson() const override;

private:
    const char* nameImage() const;

    const ProgressMeter& m_meter;
    const FirmwareImages& m_images;
};

// All is written.
class WrittenReport final : public Report {
public:
    WrittenReport(const FirmwareImages& images, const FlashReplies& replies, std::chrono::nanoseconds time)
        : m_images(images), m_replies(replies), m_time(time)
    {}

    std::string asText() const override;
    JsonObject asJson() const override;

private:
    const FirmwareImages& m_images;
    const FlashReplies& m_replies;
    const std::chrono::nanoseconds m_time;
};

// The panel is waited for, at most so long.
class WaitingReport final : public Report {
public:
    explicit WaitingReport(std::chrono::nanoseconds limit) : m_limit(limit) {}

    std::string asText() const override;
    JsonObject asJson() const override;

private:
    const std::chrono::nanoseconds m_limit;
};

// The panel answers.
class AnswersReport final : public Report {
public:
    std::string asText() const override;
    JsonObject asJson() const override;
};

} // namespace Vantor
