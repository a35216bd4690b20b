#pragma once

#include <cstdint>
#include <filesystem>
#include <string>
#include <vector>

/// Certificate: whether a certificate and its key serve TLS, before anybody connects.

namespace gateway {

struct CertificateRemark {
    enum class Of { certificate, key };
    Of of = Of::certificate;
    bool fatal = false; // else clients may still connect, or will not be able to soon
    std::string wrong, advice;
};
/// Both are PEM files that can be read. `unixS` is now.
std::vector<CertificateRemark> examineCertificate(const std::filesystem::path& certificate,
                                                  const std::filesystem::path& key,
                                                  std::int64_t unixS);

} // namespace gateway
