/// A certificate that vouches for itself.
#pragma once

#include "gnss/Clock.h"

#include <ctime>
#include <openssl/pem.h>
#include <openssl/x509.h>
#include <string>

/// In PEM.
struct Pair {
    std::string key, certificate;
};

/// Of "localhost", valid for those days from now.
inline Pair pair(int fromDay, int toDay) {
    const auto text = [](const auto& write) {
        BIO* const out = BIO_new(BIO_s_mem());
        write(out);
        char* data = nullptr;
        const long n = BIO_get_mem_data(out, &data);
        std::string pem(data, static_cast<std::size_t>(n));
        BIO_free(out);
        return pem;
    };
    EVP_PKEY* const key = EVP_EC_gen("P-256");
    X509* const c = X509_new();
    std::time_t now = utcNow().time;
    X509_time_adj_ex(X509_getm_notBefore(c), fromDay, 0, &now);
    X509_time_adj_ex(X509_getm_notAfter(c), toDay, 0, &now);
    X509_NAME_add_entry_by_txt(X509_get_subject_name(c), "CN", MBSTRING_ASC,
                               reinterpret_cast<const unsigned char*>("localhost"), -1, -1, 0);
    X509_set_issuer_name(c, X509_get_subject_name(c));
    X509_set_pubkey(c, key);
    X509_sign(c, key, EVP_sha256());
    Pair out{text([&](BIO* b) {
                 PEM_write_bio_PrivateKey(b, key, nullptr, nullptr, 0, nullptr, nullptr);
             }),
             text([&](BIO* b) { PEM_write_bio_X509(b, c); })};
    X509_free(c);
    EVP_PKEY_free(key);
    return out;
}
