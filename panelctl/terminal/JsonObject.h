#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <type_traits>
#include <vector>

namespace Vantor {

// One JSON object, written member by member; they keep their order. Strings may hold any
// bytes: what is not UTF-8 becomes U+FFFD.
//
// The one place that knows the JSON library, which takes a compiler seconds.
class JsonObject {
public:
    JsonObject();
    explicit JsonObject(const std::string& event); // with "event" as its first member
    JsonObject(JsonObject&& other) noexcept;
    JsonObject& operator=(JsonObject&& other) noexcept;
    ~JsonObject();

    JsonObject& add(const std::string& name, const std::string& value);
    JsonObject& add(const std::string& name, const char* value);
    JsonObject& add(const std::string& name, double value); // null for what is no number
    JsonObject& add(const std::string& name, const JsonObject& value);
    JsonObject& add(const std::string& name, const std::vector<JsonObject>& values);
    JsonObject& add(const std::string& name, const std::vector<std::uint64_t>& values);
    JsonObject& add(const std::string& name, const std::vector<std::string>& values);
    JsonObject& add(const std::string& name, std::nullptr_t);

    template <typename Integer, typename = std::enable_if_t<std::is_integral_v<Integer>>>
    JsonObject& add(const std::string& name, Integer value)
    {
        if constexpr (std::is_same_v<Integer, bool>)
            return addTruth(name, value);
        else if constexpr (std::is_signed_v<Integer>)
            return addSigned(name, value);
        else
            return addUnsigned(name, value);
    }

    // null without a value.
    template <typename Value> JsonObject& add(const std::string& name, const std::optional<Value>& value)
    {
        return value ? add(name, *value) : add(name, nullptr);
    }

    // One line, without its end.
    std::string format() const;

private:
    struct Members;

    JsonObject& addTruth(const std::string& name, bool value);
    JsonObject& addSigned(const std::string& name, std::int64_t value);
    JsonObject& addUnsigned(const std::string& name, std::uint64_t value);

    std::unique_ptr<Members> m_members;
};

} // namespace Vantor
