#include "gateway/ntrip/HttpAnswer.h"

namespace gateway::ntrip {

namespace http = boost::beast::http;
namespace asio = boost::asio;

HttpAnswer::HttpAnswer() {
    eager(true);
    header_limit(2 * kLongestHead); // it was longer when its lines got CR LF
    body_limit(boost::none);        // a stream has no end
}

BodyState HttpAnswer::takeHead(const std::string& head) {
    Error error;
    const std::size_t taken = put(asio::buffer(head), error);
    failed_ = error || taken != head.size();
    return failed_ ? BodyState::malformed : is_done() ? BodyState::ended : BodyState::flows;
}

BodyState HttpAnswer::takeBody(std::string& held, std::vector<std::uint8_t>& data) {
    data_ = &data;
    while (!held.empty() && !failed_ && !is_done()) {
        Error error;
        const std::size_t taken = put(asio::buffer(held), error);
        held.erase(0, taken);
        if (error == http::error::need_more)
            break;
        failed_ = error.failed();
    }
    data_ = nullptr;
    // What waits is the line of a chunk or the fields behind the last one.
    failed_ = failed_ || (!is_done() && held.size() > kLongestHead);
    return failed_ ? BodyState::malformed : is_done() ? BodyState::ended : BodyState::flows;
}

std::size_t HttpAnswer::keep(Text body) {
    if (data_)
        data_->insert(data_->end(), body.begin(), body.end());
    return body.size();
}

void HttpAnswer::on_response_impl(int code, Text text, int /*version*/, Error& error) {
    status = code;
    reason = std::string(text);
    error = {};
}

void HttpAnswer::on_field_impl(http::field name, Text /*text*/, Text value, Error& error) {
    if (name == http::field::content_type)
        contentType = std::string(value);
    else if (name == http::field::location)
        location = std::string(value);
    error = {};
}

std::size_t HttpAnswer::on_body_impl(Text body, Error& error) {
    error = {};
    return keep(body);
}

std::size_t HttpAnswer::on_chunk_body_impl(std::uint64_t /*remain*/, Text body, Error& error) {
    error = {};
    return keep(body);
}

} // namespace gateway::ntrip
