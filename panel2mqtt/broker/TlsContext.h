#pragma once

#include "panel2mqtt/broker/BrokerSettings.h"

#include <string>

struct ssl_ctx_st;
struct ssl_st;
struct x509_store_ctx_st;

namespace Vantor {

// What a TLS connection to the broker is made with: the authorities, this host's own
// certificate, and the name that the broker's must be for. libmosquitto's own would take
// the name from the address that is connected to, which here is one of several of a name,
// and would not say what is wrong with a certificate.
//
// Threads: one. Lifetime: that of one connection: the files are read at construction.
class TlsContext {
public:
    // Throws std::runtime_error: which file is wrong, and how.
    explicit TlsContext(const BrokerSettings& settings);
    ~TlsContext();
    TlsContext(const TlsContext&) = delete;
    TlsContext& operator=(const TlsContext&) = delete;

    ssl_ctx_st* get() const { return m_context; }

    // What was wrong with the broker's certificate; empty if nothing was, or none has come.
    const std::string& getComplaint() const { return m_complaint; }

private:
    void trust(const std::string& authorityFile);
    void presentCertificate(const BrokerSettings& settings);
    void expectName();
    void explain(int error);

    static int onVerified(int isGood, x509_store_ctx_st* store);
    static void onProgress(const ssl_st* connection, int where, int);

    const std::string m_name;
    const bool m_isNumeric;
    const std::string m_authority; // as people are told
    ssl_ctx_st* const m_context;
    std::string m_complaint;
};

} // namespace Vantor
