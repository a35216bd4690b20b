#pragma once

#include "base/Print.h"

#include <string>

/// Keeps the lines that are said.
struct KeptLines final : PrintTarget {
    void take(Level /*level*/, std::string_view text) override { all += text; }
    void take(const Lasting& /*what*/, std::string_view /*text*/) override {}
    void epochEnd() override {}
    void ended(Cause /*cause*/) override {}
    void flush() override {}
    void lastLine() override {}
    std::string all;
};
