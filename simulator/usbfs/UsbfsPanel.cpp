#include "simulator/usbfs/UsbfsPanel.h"

#include "simulator/bus/OrderExecution.h"

#include <algorithm>
#include <cerrno>
#include <exception>
#include <utility>

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

UsbfsPanel::UsbfsPanel(BusShare& share, const Address& address, PanelModel::Options options, BootLoader::Flash flash,
                       const std::string& nodePath)
    : m_share(share), m_address(address), m_model(std::move(options), share.clock, std::move(flash)),
      m_control(m_model, ControlEndpoint::onlyConfiguration), m_node(nodePath),
      m_handler(umockdev_ioctl_base_new(), g_object_unref), m_livingHandler(m_handler.get())
{
    m_model.setRecordObserver([this](const PanelModel::Record& record) {
        if (m_share.log)
            log(describe(record));
    });
    g_signal_connect(m_handler.get(), "handle-ioctl", G_CALLBACK(onIoctl), this);
    g_object_weak_ref(G_OBJECT(m_handler.get()), onHandlerGone, this);
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

UMockdevIoctlBase* UsbfsPanel::getIoctlHandler() const
{
    return m_handler.get();
}

void UsbfsPanel::letGo()
{
    m_handler.reset();
}

bool UsbfsPanel::hasBeenLetGo() const
{
    return m_livingHandler == nullptr;
}

const UsbfsPanel::Address& UsbfsPanel::getAddress() const
{
    return m_address;
}

PanelModel& UsbfsPanel::getModel()
{
    return m_model;
}

bool UsbfsPanel::isPlugged() const
{
    return m_plugged;
}

bool UsbfsPanel::isPulled() const
{
    return m_plugged && m_model.isUnplugged();
}

void UsbfsPanel::unplug()
{
    m_plugged = false;
    m_model.unplug();
    settle();
    for (const auto& [client, file] : m_files)
        file->disconnect();
    m_node.hangUp();
}

void UsbfsPanel::settle()
{
    for (auto completions = m_model.takeCompletions(); !completions.empty(); completions = m_model.takeCompletions()) {
        for (const PanelModel::Completion& completion : completions) {
            const bool taken = std::any_of(m_files.begin(), m_files.end(), [&completion](const auto& entry) {
                return entry.second->complete(completion);
            });
            static_cast<void>(taken); // of a file closed meanwhile: nobody's
        }
    }
    m_node.setReady(
        std::any_of(m_files.begin(), m_files.end(), [](const auto& entry) { return entry.second->hasReapable(); }));
    logViolations();
    const auto deadline = m_model.nextDeadline();
    if (isPulled() || (deadline && *deadline < m_share.wakeTime))
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
    const unsigned long request = umockdev_ioctl_client_get_request(client);
    int result = 0;
    try {
        result = fileOf(client).handle(request, ClientMemory::argumentOf(client));
    } catch (const std::exception& error) {
        log(error.what());
        result = -EFAULT;
    }
    if (const char* const name = nameOf(request); name != nullptr)
        log(std::string(name) + (result == 0 ? "" : ": " + std::string(strerrorname_np(-result))));
    settle();
    return result;
}

// umockdev reports no closed file, but it drops the client then.
UsbfsFile& UsbfsPanel::fileOf(UMockdevIoctlClient* client)
{
    std::unique_ptr<UsbfsFile>& file = m_files[client];
    if (!file) {
        file = std::make_unique<UsbfsFile>(m_model, m_control, m_share.capabilities, m_lastUrb);
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
    panel->m_files.erase(client);
    panel->settle();
}

// Its clients had a share each and went before it.
void UsbfsPanel::onHandlerGone(gpointer self, GObject* /*handler*/)
{
    auto* const panel = static_cast<UsbfsPanel*>(self);
    const std::lock_guard<std::mutex> lock(panel->m_share.mutex);
    panel->m_livingHandler = nullptr;
}

void UsbfsPanel::log(const std::string& line) const
{
    if (m_share.log)
        m_share.log("panel " + std::to_string(m_address.panel) + ": " + line);
}

void UsbfsPanel::logViolations()
{
    const auto& violations = m_model.getViolations();
    for (; m_loggedViolations < violations.size(); ++m_loggedViolations)
        log("violation: " + violations[m_loggedViolations]);
}

} // namespace Vantor
