#pragma once

#include "gateway/ntrip/Request.h"

#include <boost/beast/http/basic_parser.hpp>

#include <cstdint>
#include <string>
#include <vector>

/// HttpAnswer: an HTTP answer as Boost.Beast reads it, its body handed on as it comes.

namespace gateway::ntrip {

class HttpAnswer final : public boost::beast::http::basic_parser<false> {
public:
    HttpAnswer();
    /// Takes a whole head, its lines ended with CR LF.
    BodyState takeHead(const std::string& head);
    /// Takes what it can of `held`, and leaves there what is not whole.
    BodyState takeBody(std::string& held, std::vector<std::uint8_t>& data);

    int status = 0;
    std::string reason, contentType, location;

private:
    using Error = boost::beast::error_code;
    using Text = boost::beast::string_view;
    std::size_t keep(Text body);

    void on_request_impl(boost::beast::http::verb, Text, Text, int, Error&) override {}
    void on_response_impl(int code, Text text, int version, Error& error) override;
    void on_field_impl(boost::beast::http::field name, Text, Text value, Error& error) override;
    void on_header_impl(Error& error) override { error = {}; }
    void on_body_init_impl(const boost::optional<std::uint64_t>&, Error& error) override {
        error = {};
    }
    std::size_t on_body_impl(Text body, Error& error) override;
    void on_chunk_header_impl(std::uint64_t, Text, Error& error) override { error = {}; }
    std::size_t on_chunk_body_impl(std::uint64_t, Text body, Error& error) override;
    void on_finish_impl(Error& error) override { error = {}; }

    std::vector<std::uint8_t>* data_ = nullptr; // while takeBody runs
    bool failed_ = false;
};

} // namespace gateway::ntrip
