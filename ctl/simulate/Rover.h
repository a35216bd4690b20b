#pragma once

#include "ctl/simulate/FileDescriptor.h"

#include <cstdint>
#include <span>
#include <string>
#include <sys/types.h>

/// Rover: a client of a caster, a command of the shell that writes what it gets to its standard
/// output. When it ends it is started again, as a rover in the field connects anew.

namespace ctl::simulate {

class Rover {
public:
    explicit Rover(std::string command) : command_(std::move(command)) {}
    ~Rover() { end(); }
    Rover(const Rover&) = delete;
    Rover& operator=(const Rover&) = delete;

    /// std::system_error where the shell cannot be started.
    void start();
    /// Ends it and all that it has started.
    void end();
    bool runs() const { return output_.open(); }
    int output() const { return output_.get(); }
    /// What has come, into `buffer`: the number of bytes, 0 where it has ended, -1 for nothing now.
    ssize_t read(std::span<std::uint8_t> buffer) const;

private:
    std::string command_;
    pid_t process_ = 0; // leads a group of its own
    FileDescriptor output_;
};

} // namespace ctl::simulate
