#include "tests/unit/settings/PemFiles.h"

#include <memory>
#include <stdexcept>

#include <openssl/bio.h>
#include <openssl/ec.h>
#include <openssl/evp.h>
#include <openssl/pem.h>
#include <openssl/x509.h>

namespace Vantor {

namespace {

using Memory = std::unique_ptr<BIO, int (*)(BIO*)>;

std::string contentOfPem(const Memory& memory)
{
    char* data = nullptr;
    const long size = BIO_get_mem_data(memory.get(), &data);
    return {data, static_cast<std::size_t>(size)};
}

} // namespace

PemKey::PemKey() : m_key(EVP_EC_gen("P-256"))
{
    if (m_key == nullptr)
        throw std::runtime_error("no key");
}

PemKey::~PemKey()
{
    EVP_PKEY_free(m_key);
}

std::string PemKey::asPem(const std::string& password) const
{
    const Memory memory(BIO_new(BIO_s_mem()), BIO_free);
    PEM_write_bio_PrivateKey(memory.get(), m_key, password.empty() ? nullptr : EVP_aes_128_cbc(),
                             reinterpret_cast<const unsigned char*>(password.data()), static_cast<int>(password.size()),
                             nullptr, nullptr);
    return contentOfPem(memory);
}

std::string PemKey::makeCertificate(std::chrono::seconds begin, std::chrono::seconds end) const
{
    const std::unique_ptr<X509, void (*)(X509*)> certificate(X509_new(), X509_free);
    X509_gmtime_adj(X509_getm_notBefore(certificate.get()), static_cast<long>(begin.count()));
    X509_gmtime_adj(X509_getm_notAfter(certificate.get()), static_cast<long>(end.count()));
    X509_set_pubkey(certificate.get(), m_key);
    X509_sign(certificate.get(), m_key, EVP_sha256());
    const Memory memory(BIO_new(BIO_s_mem()), BIO_free);
    PEM_write_bio_X509(memory.get(), certificate.get());
    return contentOfPem(memory);
}

} // namespace Vantor
