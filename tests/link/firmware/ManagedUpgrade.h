#pragma once

#include "tests/link/firmware/FaultyPanel.h"
#include "tests/support/ManagerRig.h"

#include <atomic>
#include <chrono>
#include <memory>
#include <string>

namespace Vantor::Test {

// An upgrade as UpgradeRun does it, under the manager: its worker and its receive thread
// take turns with the test, and the device information comes from the panel.
class ManagedUpgrade : public ManagerRig {
public:
    explicit ManagedUpgrade(const FaultyPanel::Options& options);
    ~ManagedUpgrade();

    // Empty when all is as it should be.
    std::string run(const FaultyPanel::FaultSource& faults, std::chrono::nanoseconds limit);

    const FirmwareFaults& met() const { return m_panel->met(); }

private:
    void pass();

    const FaultyPanel::Options m_options;
    std::unique_ptr<FaultyPanel> m_panel;
    std::atomic<std::uint32_t> m_progress{0};
};

} // namespace Vantor::Test
