#include "panel2mqtt/settings/Certificate.h"

#include <ctime>
#include <utility>

#include <openssl/bio.h>
#include <openssl/err.h>
#include <openssl/evp.h>
#include <openssl/pem.h>
#include <openssl/x509.h>

namespace Vantor {

namespace {

using PemFile = std::unique_ptr<BIO, int (*)(BIO*)>;

PemFile openPem(const std::string& file)
{
    return {BIO_new_file(file.c_str(), "r"), BIO_free};
}

// OpenSSL's own asks on the terminal.
int giveNoPassword(char*, int, int, void*)
{
    return -1;
}

Certificate::Time readTime(const ASN1_TIME* time)
{
    std::tm parts{};
    if (ASN1_TIME_to_tm(time, &parts) != 1)
        return {};
    return std::chrono::system_clock::from_time_t(timegm(&parts));
}

} // namespace

Certificate::Certificate(std::shared_ptr<x509_st> content)
    : m_content(std::move(content)), m_begin(readTime(X509_get0_notBefore(m_content.get()))),
      m_end(readTime(X509_get0_notAfter(m_content.get())))
{}

std::vector<Certificate> Certificate::readAll(const std::string& file)
{
    std::vector<Certificate> all;
    const PemFile pem = openPem(file);
    while (pem) {
        X509* const content = PEM_read_bio_X509(pem.get(), nullptr, giveNoPassword, nullptr);
        if (content == nullptr)
            break;
        all.push_back(Certificate(std::shared_ptr<X509>(content, X509_free)));
    }
    ERR_clear_error();
    return all;
}

Certificate::Fit Certificate::compareKey(const std::string& keyFile) const
{
    const PemFile pem = openPem(keyFile);
    const std::unique_ptr<EVP_PKEY, void (*)(EVP_PKEY*)> key(
        pem ? PEM_read_bio_PrivateKey(pem.get(), nullptr, giveNoPassword, nullptr) : nullptr, EVP_PKEY_free);
    const bool isSame = key && X509_check_private_key(m_content.get(), key.get()) == 1;
    ERR_clear_error();
    if (!key)
        return Fit::NoKey;
    return isSame ? Fit::Fits : Fit::OtherKey;
}

} // namespace Vantor
