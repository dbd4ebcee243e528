#include "panelctl/terminal/JsonObject.h"

#include <utility>

#include <nlohmann/json.hpp>

namespace Vantor {

using Json = nlohmann::ordered_json;

struct JsonObject::Members {
    Json json = Json::object();
};

JsonObject::JsonObject() : m_members(std::make_unique<Members>()) {}

JsonObject::JsonObject(const std::string& event) : JsonObject()
{
    add("event", event);
}

JsonObject::JsonObject(JsonObject&& other) noexcept = default;
JsonObject& JsonObject::operator=(JsonObject&& other) noexcept = default;
JsonObject::~JsonObject() = default;

JsonObject& JsonObject::add(const std::string& name, const std::string& value)
{
    m_members->json[name] = value;
    return *this;
}

JsonObject& JsonObject::add(const std::string& name, const char* value)
{
    m_members->json[name] = value;
    return *this;
}

JsonObject& JsonObject::add(const std::string& name, double value)
{
    m_members->json[name] = value;
    return *this;
}

JsonObject& JsonObject::add(const std::string& name, const JsonObject& value)
{
    m_members->json[name] = value.m_members->json;
    return *this;
}

JsonObject& JsonObject::add(const std::string& name, const std::vector<JsonObject>& values)
{
    Json array = Json::array();
    for (const JsonObject& value : values)
        array.push_back(value.m_members->json);
    m_members->json[name] = std::move(array);
    return *this;
}

JsonObject& JsonObject::add(const std::string& name, const std::vector<std::uint64_t>& values)
{
    m_members->json[name] = values;
    return *this;
}

JsonObject& JsonObject::add(const std::string& name, const std::vector<std::string>& values)
{
    m_members->json[name] = values;
    return *this;
}

JsonObject& JsonObject::add(const std::string& name, std::nullptr_t)
{
    m_members->json[name] = nullptr;
    return *this;
}

JsonObject& JsonObject::addTruth(const std::string& name, bool value)
{
    m_members->json[name] = value;
    return *this;
}

JsonObject& JsonObject::addSigned(const std::string& name, std::int64_t value)
{
    m_members->json[name] = value;
    return *this;
}

JsonObject& JsonObject::addUnsigned(const std::string& name, std::uint64_t value)
{
    m_members->json[name] = value;
    return *this;
}

std::string JsonObject::format() const
{
    return m_members->json.dump(-1, ' ', false, Json::error_handler_t::replace);
}

} // namespace Vantor
