#pragma once

#include <chrono>
#include <string>

struct evp_pkey_st;

namespace Vantor {

// A key, and certificates that it signs for itself, as PEM.
class PemKey {
public:
    PemKey();
    ~PemKey();
    PemKey(const PemKey&) = delete;
    PemKey& operator=(const PemKey&) = delete;

    std::string asPem(const std::string& password = "") const;

    // Both from now on; they may lie in the past.
    std::string makeCertificate(std::chrono::seconds begin, std::chrono::seconds end) const;

private:
    evp_pkey_st* const m_key;
};

} // namespace Vantor
