#include "gateway/settings/Certificate.h"

#include "base/Findings.h"

#include <cstdio>
#include <ctime>
#include <memory>
#include <openssl/err.h>
#include <openssl/pem.h>
#include <openssl/x509.h>

namespace gateway {

namespace {

constexpr int kSoonDays = 14;

template <auto Free> struct Freed {
    template <class T> void operator()(T* held) const { Free(held); }
};
using OpenFile = std::unique_ptr<std::FILE, Freed<std::fclose>>;
using X509Held = std::unique_ptr<X509, Freed<X509_free>>;
using KeyHeld = std::unique_ptr<EVP_PKEY, Freed<EVP_PKEY_free>>;

/// A key under a passphrase cannot be used: nobody is there to be asked.
int noPassphrase(char* /*out*/, int /*size*/, int /*writing*/, void* /*user*/) {
    return 0;
}

/// The first object of a PEM file; null where there is none.
template <class Held>
Held firstOf(const std::filesystem::path& path,
             typename Held::pointer (*read)(std::FILE*, typename Held::pointer*, pem_password_cb*,
                                            void*)) {
    const OpenFile file(std::fopen(path.c_str(), "re"));
    return Held(file ? read(file.get(), nullptr, noPassphrase, nullptr) : nullptr);
}

/// Not by X509_cmp_time: the time_t of the library has 32 bits on 32-bit ARM, ours has 64.
std::int64_t unixSOf(const ASN1_TIME* time) {
    std::tm t{};
    return ASN1_TIME_to_tm(time, &t) == 1 ? timegm(&t) : 0;
}

std::string dayOf(const ASN1_TIME* time) {
    std::tm t{};
    return ASN1_TIME_to_tm(time, &t) == 1
               ? text("%04d-%02d-%02d", t.tm_year + 1900, t.tm_mon + 1, t.tm_mday)
               : "an unknown day";
}

} // namespace

std::vector<CertificateRemark> examineCertificate(const std::filesystem::path& certificate,
                                                  const std::filesystem::path& key,
                                                  std::int64_t unixS) {
    using Of = CertificateRemark::Of;
    std::vector<CertificateRemark> out;
    const auto held = firstOf<X509Held>(certificate, PEM_read_X509);
    if (!held)
        out.push_back({Of::certificate, true, "holds no certificate",
                       "write a PEM file, the gateway's own certificate first"});
    const auto own = firstOf<KeyHeld>(key, PEM_read_PrivateKey);
    if (!own)
        out.push_back({Of::key, true, "holds no key that can be used",
                       "write a PEM file without a passphrase"});
    if (held && own && X509_check_private_key(held.get(), own.get()) != 1)
        out.push_back({Of::key, true, "is not the key of the certificate",
                       "write the two that were made together"});
    ERR_clear_error(); // told here
    if (!held)
        return out;
    const auto warn = [&](const char* what, const ASN1_TIME* day, const char* advice) {
        out.push_back({Of::certificate, false, text("%s on %s", what, dayOf(day).c_str()), advice});
    };
    const ASN1_TIME* const begin = X509_get0_notBefore(held.get());
    const ASN1_TIME* const end = X509_get0_notAfter(held.get());
    if (unixSOf(begin) > unixS)
        warn("becomes valid only", begin, "until then clients refuse it; is the clock right?");
    if (unixSOf(end) < unixS)
        warn("expired", end, "clients refuse it: renew it");
    else if (unixSOf(end) < unixS + kSoonDays * std::int64_t{86'400})
        warn("expires", end, "renew it");
    return out;
}

} // namespace gateway
