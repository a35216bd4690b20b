#pragma once

#include <string>
#include <utility>

/// Secret: a password. It prints nowhere; who needs the text says so.

namespace gateway {

class Secret {
public:
    Secret() = default;
    explicit Secret(std::string text) : text_(std::move(text)) {}
    const std::string& reveal() const { return text_; }
    bool empty() const { return text_.empty(); }
    friend bool operator==(const Secret&, const Secret&) = default;

private:
    std::string text_;
};

} // namespace gateway
