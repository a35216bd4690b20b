#pragma once

#include "gateway/net/Say.h"
#include "gateway/net/Within.h"

#include <boost/asio/any_io_executor.hpp>

#include <filesystem>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

/// Child: a program that runs beside us and ends with us.

namespace gateway {

/// What end() says of one that ended well.
inline constexpr std::string_view kEndedWell = "ended with status 0";

class Child {
public:
    /// Starts it; std::runtime_error where that fails. Its lines of level warning and above are
    /// said while it runs; they have their level as in the journal (JOURNAL_STREAM, sd-daemon(3)).
    Child(const asio::any_io_executor& executor, const std::filesystem::path& program,
          const std::vector<std::string>& arguments, const Say& say);
    /// Asks it to end (SIGTERM), and kills it a second later, with all that it has started.
    ~Child();
    Child(const Child&) = delete;
    Child& operator=(const Child&) = delete;

    /// Waits until it has ended by itself; always ends with std::runtime_error that says how.
    awaitable<void> end();

private:
    struct Running;
    std::shared_ptr<Running> running_;
};

} // namespace gateway
