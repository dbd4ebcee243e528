#pragma once

#include <chrono>
#include <memory>
#include <string>
#include <vector>

struct x509_st;

namespace Vantor {

// A certificate out of a PEM file. Nothing here asks for a password.
//
// Threads: any, one at a time.
class Certificate {
public:
    using Time = std::chrono::system_clock::time_point;

    enum class Fit { Fits, OtherKey, NoKey };

    // All up to the first that is damaged.
    static std::vector<Certificate> readAll(const std::string& file);

    Time getBegin() const { return m_begin; }
    Time getEnd() const { return m_end; }

    // NoKey: there is no private key in the file, or it can't be used without a password.
    Fit compareKey(const std::string& keyFile) const;

private:
    explicit Certificate(std::shared_ptr<x509_st> content);

    std::shared_ptr<x509_st> m_content;
    Time m_begin;
    Time m_end;
};

} // namespace Vantor
