#pragma once

#include <cstddef>
#include <cstdint>
#include <span>

/// StreamWatcher: who counts what intake takes in. A service without a status has none.
class StreamWatcher {
public:
    /// A whole frame whose check word is right, of any station.
    virtual void frame(std::span<const std::uint8_t> frame) = 0;
    virtual void wrongCheckWord() = 0;
    /// An observation message that was taken.
    virtual void observations(std::span<const std::uint8_t> frame) = 0;
    /// A message of that number was not taken, for what it holds.
    virtual void refused(int type) = 0;
    /// Nor was one of another station than the stream's.
    virtual void ofOtherStation() = 0;
    /// An epoch has ended, by its own end or without it, and was answered where it could be.
    virtual void epochEnd(bool whole) = 0;

protected:
    ~StreamWatcher() = default;
};
