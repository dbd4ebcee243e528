#include "simulator/usbfs/ClientMemory.h"

#include <string>

namespace Vantor {

namespace {

[[noreturn]] void fail(GError* error)
{
    const std::string cause = error != nullptr ? error->message : "no such memory";
    g_clear_error(&error);
    throw std::runtime_error("client memory: " + cause);
}

} // namespace

ClientMemory::ClientMemory(UMockdevIoctlData* data) : m_data(data, g_object_unref) {}

ClientMemory ClientMemory::argumentOf(UMockdevIoctlClient* client)
{
    return ClientMemory(static_cast<UMockdevIoctlData*>(g_object_ref(umockdev_ioctl_client_get_arg(client))));
}

ClientMemory ClientMemory::follow(std::size_t offset, std::size_t length) const
{
    GError* error = nullptr;
    UMockdevIoctlData* const target = umockdev_ioctl_data_resolve(m_data.get(), offset, length, &error);
    if (target == nullptr)
        fail(error);
    return ClientMemory(target);
}

void ClientMemory::point(std::size_t offset, const ClientMemory& target)
{
    umockdev_ioctl_data_set_ptr(m_data.get(), offset, target.m_data.get());
}

std::uintptr_t ClientMemory::getAddress() const
{
    return m_data->client_addr;
}

std::vector<std::uint8_t> ClientMemory::readBytes(std::size_t offset, std::size_t length) const
{
    const std::uint8_t* const bytes = bytesAt(offset, length);
    return {bytes, bytes + length};
}

void ClientMemory::writeBytes(std::size_t offset, const void* bytes, std::size_t length)
{
    bytesAt(offset, length);
    std::memcpy(m_data->data + offset, bytes, length);
}

const std::uint8_t* ClientMemory::bytesAt(std::size_t offset, std::size_t length) const
{
    const auto size = static_cast<std::size_t>(m_data->data_len);
    if (offset > size || length > size - offset)
        throw std::runtime_error("client memory: beyond the piece");
    return m_data->data + offset;
}

} // namespace Vantor
