#include "panel2mqtt/broker/TlsContext.h"

#include "panel2mqtt/broker/PasswordFile.h"

#include <stdexcept>

#include <arpa/inet.h>
#include <netinet/in.h>
#include <openssl/err.h>
#include <openssl/ssl.h>
#include <openssl/x509_vfy.h>
#include <openssl/x509v3.h>

namespace Vantor {

namespace {

bool isNumericAddress(const std::string& address)
{
    in6_addr ignored = {};
    return inet_pton(AF_INET, address.c_str(), &ignored) == 1 || inet_pton(AF_INET6, address.c_str(), &ignored) == 1;
}

std::string takeTlsError()
{
    const unsigned long error = ERR_get_error();
    ERR_clear_error();
    const char* const text = error == 0 ? nullptr : ERR_reason_error_string(error);
    return text == nullptr ? "unknown" : text;
}

[[noreturn]] void failTls(const std::string& what)
{
    throw std::runtime_error(what + ": " + takeTlsError());
}

// OpenSSL's own asks on the terminal, and waits there.
int refusePassword(char*, int, int, void*)
{
    return -1;
}

} // namespace

TlsContext::TlsContext(const BrokerSettings& settings)
    : m_name(settings.address), m_isNumeric(isNumericAddress(settings.address)),
      m_authority(settings.authorityFile.empty() ? "that this system knows" : "in " + settings.authorityFile),
      m_context(SSL_CTX_new(TLS_client_method()))
{
    if (m_context == nullptr)
        failTls("TLS can't be used");
    try {
        SSL_CTX_set_min_proto_version(m_context, TLS1_2_VERSION);
        SSL_CTX_set_mode(m_context, SSL_MODE_RELEASE_BUFFERS);
        SSL_CTX_set_options(m_context, SSL_OP_NO_COMPRESSION);
        SSL_CTX_set_default_passwd_cb(m_context, refusePassword);
        SSL_CTX_set_app_data(m_context, this);
        SSL_CTX_set_verify(m_context, SSL_VERIFY_PEER, onVerified);
        SSL_CTX_set_info_callback(m_context, onProgress);
        trust(settings.authorityFile);
        presentCertificate(settings);
        expectName();
    } catch (...) {
        SSL_CTX_free(m_context);
        throw;
    }
}

TlsContext::~TlsContext()
{
    SSL_CTX_free(m_context);
}

void TlsContext::trust(const std::string& authorityFile)
{
    if (authorityFile.empty()) {
        SSL_CTX_set_default_verify_paths(m_context);
        return;
    }
    requireReadable(authorityFile, "authority's certificate");
    if (SSL_CTX_load_verify_file(m_context, authorityFile.c_str()) != 1)
        failTls("there is no authority's certificate in " + authorityFile);
}

void TlsContext::presentCertificate(const BrokerSettings& settings)
{
    if (settings.certificateFile.empty() && settings.keyFile.empty())
        return;
    if (settings.certificateFile.empty() || settings.keyFile.empty())
        throw std::runtime_error("a certificate of this host needs its key, and a key its certificate");
    requireReadable(settings.certificateFile, "certificate");
    requireReadable(settings.keyFile, "key");
    if (SSL_CTX_use_certificate_chain_file(m_context, settings.certificateFile.c_str()) != 1)
        failTls("there is no certificate in " + settings.certificateFile);
    if (SSL_CTX_use_PrivateKey_file(m_context, settings.keyFile.c_str(), SSL_FILETYPE_PEM) != 1)
        failTls("there is no key in " + settings.keyFile + " that fits " + settings.certificateFile +
                " and needs no password");
}

void TlsContext::expectName()
{
    X509_VERIFY_PARAM* const expected = SSL_CTX_get0_param(m_context);
    X509_VERIFY_PARAM_set_hostflags(expected, X509_CHECK_FLAG_NO_PARTIAL_WILDCARDS);
    const int isSet = m_isNumeric ? X509_VERIFY_PARAM_set1_ip_asc(expected, m_name.c_str())
                                  : X509_VERIFY_PARAM_set1_host(expected, m_name.c_str(), m_name.size());
    if (isSet != 1)
        failTls("no certificate can be for the address '" + m_name + "'");
}

void TlsContext::explain(int error)
{
    switch (error) {
    case X509_V_ERR_CERT_HAS_EXPIRED:
        m_complaint = "the broker's certificate, or its authority's, has expired";
        break;
    case X509_V_ERR_CERT_NOT_YET_VALID:
        m_complaint = "the broker's certificate is not valid yet: is this host's clock right?";
        break;
    case X509_V_ERR_HOSTNAME_MISMATCH:
    case X509_V_ERR_IP_ADDRESS_MISMATCH:
        m_complaint = "the broker's certificate is not for " + m_name;
        break;
    case X509_V_ERR_UNABLE_TO_GET_ISSUER_CERT:
    case X509_V_ERR_UNABLE_TO_GET_ISSUER_CERT_LOCALLY:
    case X509_V_ERR_UNABLE_TO_VERIFY_LEAF_SIGNATURE:
    case X509_V_ERR_SELF_SIGNED_CERT_IN_CHAIN:
    case X509_V_ERR_DEPTH_ZERO_SELF_SIGNED_CERT:
    case X509_V_ERR_CERT_SIGNATURE_FAILURE:
        m_complaint = "the broker's certificate is not of an authority " + m_authority;
        break;
    default:
        m_complaint = std::string("the broker's certificate is not good: ") + X509_verify_cert_error_string(error);
    }
}

int TlsContext::onVerified(int isGood, X509_STORE_CTX* store)
{
    const void* const connection = X509_STORE_CTX_get_ex_data(store, SSL_get_ex_data_X509_STORE_CTX_idx());
    const SSL_CTX* const context = SSL_get_SSL_CTX(static_cast<const SSL*>(connection));
    if (isGood == 0)
        static_cast<TlsContext*>(SSL_CTX_get_app_data(context))->explain(X509_STORE_CTX_get_error(store));
    return isGood;
}

// libmosquitto names the address that it connects to; a broker with several certificates
// has to be told the name.
void TlsContext::onProgress(const SSL* connection, int where, int)
{
    if ((where & SSL_CB_HANDSHAKE_START) == 0)
        return;
    const auto& self = *static_cast<const TlsContext*>(SSL_CTX_get_app_data(SSL_get_SSL_CTX(connection)));
    // It is const for callbacks that only look, and the name for no reason is not.
    SSL_set_tlsext_host_name(const_cast<SSL*>(connection),
                             self.m_isNumeric ? nullptr : const_cast<char*>(self.m_name.c_str()));
}

} // namespace Vantor
