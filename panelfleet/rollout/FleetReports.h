#pragma once

#include "panelctl/terminal/Report.h"
#include "panelfleet/rollout/FleetView.h"
#include "panelfleet/rollout/Rollout.h"

#include <optional>
#include <string>

namespace Vantor {

// What panelfleet says, docs/panelfleet.md. What came from the broker is made safe for a
// terminal.

// Of `list`: a host that has no panels.
class HostReport final : public Report {
public:
    HostReport(std::string host, const FleetView::Host& known);

    std::string asText() const override;
    JsonObject asJson() const override;

private:
    const std::string m_host;
    const HostState m_state;
};

// Of `list`.
class PlaceReport final : public Report {
public:
    PlaceReport(std::string host, std::string place, const FleetView& view);

    std::string asText() const override;
    JsonObject asJson() const override;

private:
    const std::string m_host;
    const std::string m_place;
    const FleetView::Panel m_panel;
    const FleetView::Presence m_presence;
    const std::string m_version; // of the gateway
};

// How far one panel is. `away` is why it can't be asked.
class ProgressReport final : public Report {
public:
    ProgressReport(const Rollout::Panel& panel, std::optional<std::string> away);

    std::string asText() const override;
    JsonObject asJson() const override;

private:
    const char* getWord() const;
    std::string describe() const;

    const Rollout::Panel m_panel;
    const std::optional<std::string> m_away;
};

class SummaryReport final : public Report {
public:
    SummaryReport(std::string id, const Rollout::Counts& counts, bool isStopped);

    std::string asText() const override;
    JsonObject asJson() const override;

private:
    const std::string m_id;
    const Rollout::Counts m_counts;
    const bool m_isStopped;
};

class NoteReport final : public Report {
public:
    explicit NoteReport(std::string text) : m_text(std::move(text)) {}

    std::string asText() const override;
    JsonObject asJson() const override;

private:
    const std::string m_text;
};

} // namespace Vantor
