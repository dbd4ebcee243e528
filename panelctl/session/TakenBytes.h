#pragma once

#include "panelctl/session/Panel.h"

#include <cstdint>

namespace Vantor {

// Counts the bytes that a panel accepts from construction on, packet headers
// included. Asked at least once in 4 GiB, as the library's counter wraps.
class TakenBytes {
public:
    explicit TakenBytes(const Panel& panel) : m_panel(panel), m_counter(panel.getSentBytes()) {}

    std::uint64_t get()
    {
        const std::uint32_t counter = m_panel.getSentBytes();
        m_bytes += static_cast<std::uint32_t>(counter - m_counter);
        m_counter = counter;
        return m_bytes;
    }

private:
    Panel m_panel;
    std::uint32_t m_counter; // as last read
    std::uint64_t m_bytes = 0;
};

} // namespace Vantor
