#include "simulator/usbfs/UsbfsPanel.h"

#include "simulator/bus/PanelRack.h"

#include <algorithm>
#include <cerrno>
#include <cstddef>
#include <exception>
#include <utility>

#include <linux/usb/ch9.h>
#include <linux/usbdevice_fs.h>
#include <sys/ioctl.h>

namespace Vantor {

namespace {

// Null for what is not worth a line.
const char* nameOf(unsigned long request)
{
    switch (request) {
    case USBDEVFS_CLAIMINTERFACE:
    case USBDEVFS_DISCONNECT_CLAIM:
        return "claim";
    case USBDEVFS_RELEASEINTERFACE:
        return "release";
    default:
        return nullptr;
    }
}

} // namespace

UsbfsPanel::UsbfsPanel(PanelRack& rack, unsigned int number, BusShare& share, const Address& address,
                       const std::string& nodePath)
    : BusPanel(rack, number), m_share(share), m_address(address),
      m_tap(rack.tapLink(
          LinkTap::Address{static_cast<std::uint16_t>(address.bus), static_cast<std::uint8_t>(address.device)})),
      m_control(servedModel(), ControlEndpoint::onlyConfiguration), m_node(nodePath),
      m_handler(umockdev_ioctl_base_new(), g_object_unref), m_livingHandler(m_handler.get())
{
    g_signal_connect(m_handler.get(), "handle-ioctl", G_CALLBACK(onIoctl), this);
    g_object_weak_ref(G_OBJECT(m_handler.get()), onHandlerGone, this);
    tellEnumeration();
}

UsbfsPanel::~UsbfsPanel()
{
    if (m_livingHandler != nullptr) {
        g_signal_handlers_disconnect_by_data(m_livingHandler, this);
        g_object_weak_unref(G_OBJECT(m_livingHandler), onHandlerGone, this);
    }
    for (const auto& [client, file] : m_files)
        g_object_weak_unref(static_cast<GObject*>(client), onClientGone, this);
}

void UsbfsPanel::unplug()
{
    m_plugged = false;
    act([](PanelModel& model) { model.unplug(); });
    for (const auto& [client, file] : m_files)
        file->disconnect();
    m_node.hangUp();
}

// Clients find the descriptors in sysfs; a host has read them from the panel.
void UsbfsPanel::tellEnumeration()
{
    for (const std::uint8_t type : {std::uint8_t{USB_DT_DEVICE}, std::uint8_t{USB_DT_CONFIG}}) {
        constexpr std::uint8_t longest = 0xFF;
        ControlEndpoint::Setup setup{USB_DIR_IN, USB_REQ_GET_DESCRIPTOR, 0, type, 0, 0, longest, 0};
        const ControlEndpoint::Answer answer = m_control.answer(setup);
        setup[6] = static_cast<std::uint8_t>(answer.data.size());
        m_tap.exchange(static_cast<std::uint32_t>(++m_lastUrb), setup, {}, answer);
    }
}

void UsbfsPanel::handOn(PanelModel& model)
{
    for (auto completions = model.takeCompletions(); !completions.empty(); completions = model.takeCompletions()) {
        for (const PanelModel::Completion& completion : completions) {
            const bool taken = std::any_of(m_files.begin(), m_files.end(), [&completion](const auto& entry) {
                return entry.second->complete(completion);
            });
            static_cast<void>(taken); // of a file closed meanwhile: nobody's
        }
    }
    m_node.setReady(
        std::any_of(m_files.begin(), m_files.end(), [](const auto& entry) { return entry.second->hasReapable(); }));
    const auto next = getNextTimeOfBus();
    if (isPulled() || (next && *next < m_share.wakeTime))
        m_share.deadlineMoved.notify_one();
}

gboolean UsbfsPanel::onIoctl(UMockdevIoctlBase* /*handler*/, UMockdevIoctlClient* client, gpointer self)
{
    const int result = static_cast<UsbfsPanel*>(self)->handleIoctl(client);
    umockdev_ioctl_client_complete(client, result < 0 ? -1 : result, result < 0 ? -result : 0);
    return TRUE;
}

int UsbfsPanel::handleIoctl(UMockdevIoctlClient* client)
{
    const std::lock_guard<std::mutex> lock(m_share.mutex);
    int result = 0;
    act([this, client, &result](PanelModel& /*model*/) { result = serveIoctl(client); });
    return result;
}

int UsbfsPanel::serveIoctl(UMockdevIoctlClient* client)
{
    const unsigned long request = umockdev_ioctl_client_get_request(client);
    int result = 0;
    try {
        const ClientMemory argument = ClientMemory::argumentOf(client);
        if (m_share.kernelDriver.empty() || !isKeptByDriver(request, argument, result))
            result = fileOf(client).handle(request, argument);
    } catch (const std::exception& error) {
        log(error.what());
        result = -EFAULT;
    }
    if (const char* const name = nameOf(request); name != nullptr)
        log(std::string(name) + (result == 0 ? "" : ": " + std::string(strerrorname_np(-result))));
    return result;
}

// What the kernel answers while a driver of its own holds the interface, and will not be unbound.
bool UsbfsPanel::isKeptByDriver(unsigned long request, const ClientMemory& argument, int& result) const
{
    switch (request) {
    case USBDEVFS_GETDRIVER:
        argument.follow(0, sizeof(usbdevfs_getdriver))
            .writeBytes(offsetof(usbdevfs_getdriver, driver),
                        reinterpret_cast<const std::uint8_t*>(m_share.kernelDriver.c_str()),
                        std::min(m_share.kernelDriver.size() + 1, sizeof(usbdevfs_getdriver::driver)));
        result = 0;
        return true;
    case USBDEVFS_CLAIMINTERFACE:
    case USBDEVFS_DISCONNECT_CLAIM:
        result = -EBUSY;
        return true;
    default:
        return false;
    }
}

// umockdev reports no closed file, but it drops the client then.
UsbfsFile& UsbfsPanel::fileOf(UMockdevIoctlClient* client)
{
    std::unique_ptr<UsbfsFile>& file = m_files[client];
    if (!file) {
        file = std::make_unique<UsbfsFile>(servedModel(), m_control, m_tap, m_share.capabilities, m_lastUrb);
        if (!m_plugged)
            file->disconnect();
        g_object_weak_ref(G_OBJECT(client), onClientGone, this);
    }
    return *file;
}

void UsbfsPanel::onClientGone(gpointer self, GObject* client)
{
    auto* const panel = static_cast<UsbfsPanel*>(self);
    const std::lock_guard<std::mutex> lock(panel->m_share.mutex);
    panel->act([panel, client](PanelModel& /*model*/) { panel->m_files.erase(client); });
}

// Its clients had a share each and went before it.
void UsbfsPanel::onHandlerGone(gpointer self, GObject* /*handler*/)
{
    auto* const panel = static_cast<UsbfsPanel*>(self);
    const std::lock_guard<std::mutex> lock(panel->m_share.mutex);
    panel->m_livingHandler = nullptr;
}

} // namespace Vantor
