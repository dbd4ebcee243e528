#pragma once

#include "simulator/bus/LinkTap.h"
#include "simulator/panel/ControlEndpoint.h"
#include "simulator/panel/PanelModel.h"
#include "simulator/usbip/UsbIpMessage.h"

#include <cstddef>
#include <cstdint>
#include <map>
#include <string>
#include <vector>

namespace Vantor {

// The panel's end of a USB/IP connection: the kernel's bytes in, the panel's bytes out.
// A kernel has one owner for it, whoever uses it there, from the moment it sets the
// configuration. No I/O.
//
// Each transfer that the kernel submits is answered once: by a reply of its own, or, when
// it is unlinked before that, by the reply to the unlinking.
//
// Threads: one at a time. Lifetime: the model must outlive it.
class UsbIpPanel {
public:
    explicit UsbIpPanel(PanelModel& model, LinkTap tap = {});
    ~UsbIpPanel();
    UsbIpPanel(const UsbIpPanel&) = delete;
    UsbIpPanel& operator=(const UsbIpPanel&) = delete;

    // Messages may come in any pieces. False when they can't be understood any more: the
    // connection must be closed, and getError says why.
    bool receive(const std::uint8_t* data, std::size_t size);
    const std::string& getError() const { return m_error; }

    // Hands on what has completed; after everything that was done to the model.
    void settle();

    // What is to be sent, in order; forgets it.
    std::vector<std::uint8_t> takeOutput();

    // The host has found the panel and set it up.
    bool isConfigured() const { return m_control.getConfiguration() != 0; }

private:
    bool takeMessage(const std::uint8_t* data, std::size_t size, std::size_t& used);
    bool fail(const std::string& error);
    bool submit(const UsbIpMessage::Submit& request, const std::uint8_t* data);
    void submitControl(const UsbIpMessage::Submit& request);
    void submitBulk(const UsbIpMessage::Submit& request, const std::uint8_t* data);
    void unlink(const UsbIpMessage::Unlink& request);
    void finish(const UsbIpMessage::Submit& request, int status, std::uint32_t actualLength,
                const std::vector<std::uint8_t>& data);
    void send(const std::vector<std::uint8_t>& message);

    PanelModel& m_model;
    const LinkTap m_tap;
    ControlEndpoint m_control;
    std::string m_error;
    std::vector<std::uint8_t> m_input; // of a message not yet whole
    std::vector<std::uint8_t> m_output;
    std::map<PanelModel::UrbId, UsbIpMessage::Submit> m_pending; // with the model, by sequence number
};

} // namespace Vantor
