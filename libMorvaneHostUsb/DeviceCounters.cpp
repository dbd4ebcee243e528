#include "libMorvaneHostUsb/DeviceCounters.h"

#include "libMorvaneHostUsb/StatisticsBook.h"

#include <utility>

namespace Vantor {

DeviceCounters::~DeviceCounters()
{
    if (m_book)
        m_book->close(*this);
}

void DeviceCounters::enter(std::shared_ptr<StatisticsBook> book, const PriorityPacker& packer)
{
    book->open(*this, packer);
    m_book = std::move(book);
}

void DeviceCounters::leave()
{
    if (m_book)
        m_book->leavePacker(*this);
}

DeviceStatistics DeviceCounters::read() const
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    return m_statistics;
}

void DeviceCounters::fail(DeviceFailure::Operation operation, int code)
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    if (m_failure.operation == DeviceFailure::Operation::None)
        m_failure = {operation, code};
}

DeviceFailure DeviceCounters::getFailure() const
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    return m_failure;
}

} // namespace Vantor
