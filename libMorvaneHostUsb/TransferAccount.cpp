#include "libMorvaneHostUsb/TransferAccount.h"

namespace Vantor {

TransferAccount& TransferAccount::instance()
{
    static auto* const account = new TransferAccount;
    return *account;
}

void TransferAccount::raise(const libusb_transfer* transfer)
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    ++m_held[transfer];
}

void TransferAccount::lower(const libusb_transfer* transfer)
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    const auto held = m_held.find(transfer);
    if (held == m_held.end() || held->second == 0)
        return;
    --held->second;
    m_changed.notify_all();
}

void TransferAccount::forget(const libusb_transfer* transfer)
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    m_held.erase(transfer);
}

bool TransferAccount::isHeld(const libusb_transfer* transfer)
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    const auto held = m_held.find(transfer);
    return held != m_held.end() && held->second != 0;
}

// Not analysed: a condition needs std::unique_lock, which carries no annotation.
void TransferAccount::waitForChange(std::chrono::milliseconds timeout) MORVANE_NO_THREAD_SAFETY_ANALYSIS
{
    std::unique_lock<std::mutex> lock(m_mutex);
    m_changed.wait_for(lock, timeout);
}

} // namespace Vantor
