#include "gateway/ntrip/Answer.h"

#include "base/ComText.h"
#include "gateway/net/Characters.h"
#include "gateway/ntrip/Head.h"
#include "gateway/ntrip/HttpAnswer.h"
#include "gateway/ntrip/Request.h"

#include <boost/beast/http/status.hpp>

#include <algorithm>
#include <charconv>
#include <optional>

namespace gateway::ntrip {

namespace {

using State = AnswerReader::State;

constexpr std::size_t kLongestReason = 100;

std::string fieldLine(std::string_view name, std::string_view value) {
    return std::string(name) + ": " + printable(trimmed(value), kLongestHead) + "\r\n";
}

std::string authorization(const Address& address) {
    if (address.user.empty() && address.password.empty())
        return {};
    return fieldLine("Authorization",
                     "Basic " + base64(address.user + ":" + address.password.reveal()));
}

/// A proxy needs all of it. What is pushed, and TLS, goes through a tunnel of the proxy.
std::string targetOf(const Address& address) {
    const bool whole = address.proxy && address.scheme == Scheme::ntrip;
    return (whole ? "http://" + shown(address.peer) + "/" : "/") + address.mount;
}

/// The request line and the fields that both requests of version 2 have.
std::string version2Head(const Address& address, std::string_view method) {
    return std::string(method) + " " + targetOf(address) + " HTTP/1.1\r\n" +
           fieldLine("Host", shown(address.peer)) + fieldLine("Ntrip-Version", "Ntrip/2.0") +
           fieldLine("User-Agent", product()) + authorization(address);
}

/// The ways in which an answer begins.
struct Beginning {
    std::string_view text;
    enum class Kind { http, icy, table, error, ok } kind;
};
constexpr Beginning kBeginnings[] = {
    {"HTTP/", Beginning::Kind::http},
    {"ICY ", Beginning::Kind::icy},
    {"SOURCETABLE", Beginning::Kind::table},
    {"ERROR", Beginning::Kind::error},
    {"OK", Beginning::Kind::ok}, // of version 1 to a source
};

/// What the errors of version 1 mean in HTTP.
struct ErrorMeaning {
    std::string_view word;
    int status;
};
constexpr ErrorMeaning kErrorMeanings[] = {
    {"password", 401}, {"authori", 401}, {"taken", 409}, {"mountpoint", 404}, {"mount point", 404}};

int statusOfError(std::string_view line) {
    const std::string lower = toLower(std::string(line));
    for (const ErrorMeaning& meaning : kErrorMeanings)
        if (contains(lower, meaning.word))
            return meaning.status;
    return 0;
}

enum class Looks { field, beginsAsField, other };
/// Whether a line, which may not be whole yet, is a field: a name of letters, digits and hyphens, a
/// colon, printable text. Data is told from fields by it, since no frame of any receiver looks so.
Looks looksOf(std::string_view line, bool whole) {
    while (line.ends_with('\r'))
        line.remove_suffix(1);
    const auto named = static_cast<std::size_t>(
        std::find_if_not(line.begin(), line.end(),
                         [](char c) { return isLetterOrDigit(c) || c == '-' || c == '_'; }) -
        line.begin());
    if (named == line.size())
        return whole ? Looks::other : Looks::beginsAsField;
    if (named == 0 || line[named] != ':')
        return Looks::other;
    const bool text = std::all_of(line.begin(), line.end(),
                                  [](char c) { return (c >= ' ' && c <= '~') || c == '\t'; });
    return !text ? Looks::other : whole ? Looks::field : Looks::beginsAsField;
}

/// What is read of an answer.
constexpr std::string_view kReadFields[] = {"Transfer-Encoding", "Content-Length", "Content-Type",
                                            "Location"};

/// The part of a head behind its first line, as the parser reads it: no other field can spoil the
/// answer. A length beside a coding is left out, since the coding counts.
std::string readableFields(std::string_view lines) {
    std::string fields;
    std::string length;
    bool coded = false;
    while (!lines.empty()) {
        const std::string_view line = lines.substr(0, lines.find('\n'));
        lines.remove_prefix(std::min(line.size() + 1, lines.size()));
        const std::string_view name = line.substr(0, line.find(':'));
        if (looksOf(line, /*whole=*/true) != Looks::field ||
            std::none_of(std::begin(kReadFields), std::end(kReadFields),
                         [name](std::string_view read) { return iequals(read, name); }))
            continue;
        coded = coded || iequals(name, "Transfer-Encoding");
        (iequals(name, "Content-Length") ? length : fields) += withCrLf(line);
    }
    return (coded ? "" : length) + fields + "\r\n";
}

std::string withoutText(std::string text, const std::string& secret) {
    for (std::size_t at = 0; !secret.empty() && (at = text.find(secret, at)) != text.npos; at += 3)
        text.replace(at, secret.size(), "***");
    return text;
}

} // namespace

std::string streamRequest(const Address& address, const std::string& gga) {
    if (address.version == 1)
        return "GET " + targetOf(address) + " HTTP/1.0\r\n" + fieldLine("User-Agent", product()) +
               authorization(address) + "\r\n";
    return version2Head(address, "GET") + (gga.empty() ? "" : fieldLine("Ntrip-GGA", gga)) +
           "Connection: close\r\n\r\n";
}

std::string pushRequest(const Address& address, const std::string& str) {
    if (address.version == 1) {
        return "SOURCE " + address.password.reveal() + " /" + address.mount + "\r\n" +
               fieldLine("Source-Agent", product()) + (str.empty() ? "" : fieldLine("STR", str)) +
               "\r\n";
    }
    return version2Head(address, "POST") + "Content-Type: gnss/data\r\n" +
           (str.empty() ? "" : fieldLine("Ntrip-STR", str)) +
           "Transfer-Encoding: chunked\r\nConnection: close\r\n\r\n";
}

class AnswerReader::Reader {
public:
    Reader(const Address& address, Asked asked)
        : asked_(asked), password_(address.password.reveal()),
          credentials_(base64(address.user + ":" + address.password.reveal())) {}

    State take(std::span<const std::uint8_t> bytes, std::vector<std::uint8_t>& data) {
        if (state != State::head && state != State::stream)
            return state;
        held_.append(bytes.begin(), bytes.end());
        if (state == State::head)
            readHead();
        if (state == State::stream && asked_ == Asked::push)
            held_.clear();
        else if (state == State::stream)
            readStream(data);
        return state;
    }

    State close() {
        if (state == State::stream) {
            end(State::ended, "the peer closed the stream");
        } else if (state == State::head) {
            const bool silent = held_.empty();
            held_ += "\r\n\r\n";
            if (!silent)
                readHead();
            if (state == State::stream)
                end(State::ended, "the peer closed the stream");
            else if (state == State::head)
                end(State::malformed, silent ? "the peer closed without an answer"
                                             : "the peer closed within its answer");
        }
        return state;
    }

    State state = State::head;
    int status = 0;
    std::string what;

private:
    void end(State which, const std::string& text) {
        state = which;
        what = text;
        held_.clear();
    }

    /// What the peer wrote, without what only we should know.
    std::string shownOf(std::string_view text) const {
        const std::string plain = printable(text, kLongestHead);
        return withoutText(withoutText(plain, password_), credentials_).substr(0, kLongestReason);
    }

    /// By its first line; heads of "100 Continue" may stand before the one that counts.
    void readHead() {
        while (state == State::head && !held_.empty()) {
            const auto* const row = std::find_if(
                std::begin(kBeginnings), std::end(kBeginnings), [this](const Beginning& b) {
                    const std::size_t n = std::min(b.text.size(), held_.size());
                    return std::string_view(held_).substr(0, n) == b.text.substr(0, n);
                });
            if (row == std::end(kBeginnings))
                return end(State::malformed, "no answer of a caster");
            const std::size_t line = held_.find('\n');
            const std::optional<std::size_t> length =
                row->kind == Beginning::Kind::http ? headLength(held_)
                : line == std::string::npos        ? std::nullopt
                                                   : std::optional(line + 1);
            if (heads_ + length.value_or(held_.size()) > kLongestHead)
                return end(State::malformed, "endless header");
            if (!length)
                return;
            heads_ += *length;
            const std::string head = held_.substr(0, *length);
            held_.erase(0, *length);
            if (row->kind == Beginning::Kind::http)
                readHttp(head);
            else
                readLine(row->kind,
                         trimmed(std::string_view(head).substr(0, head.find_first_of("\r\n"))));
        }
    }

    void readHttp(const std::string& head) {
        const std::size_t fields = head.find('\n') + 1;
        std::string line(trimmed(std::string_view(head).substr(0, fields)));
        if (std::count(line.begin(), line.end(), ' ') == 1)
            line += ' '; // "HTTP/1.1 200": without a reason many leave out its blank, too
        http_.emplace();
        if (http_->takeHead(line + "\r\n" +
                            readableFields(std::string_view(head).substr(fields))) ==
            BodyState::malformed)
            return end(State::malformed, "no readable answer in HTTP");
        if (http_->status / 100 == 1)
            http_.reset();
        else
            judge();
    }

    void readLine(Beginning::Kind kind, std::string_view line) {
        switch (kind) {
        case Beginning::Kind::table:
            status = 200;
            return end(State::table, "no such mountpoint (source table received)");
        case Beginning::Kind::error:
            status = statusOfError(line);
            return end(State::refused, shownOf(line));
        case Beginning::Kind::ok:
            if (line != "OK" || asked_ != Asked::push)
                return end(State::malformed, "no answer of a caster");
            status = 200;
            state = State::stream;
            return;
        default:
            break;
        }
        line.remove_prefix(std::min(line.find_first_not_of(' ', 4), line.size())); // "ICY "
        const char* const first = line.data();
        unsigned number = 0; // no sign is taken
        std::from_chars(first, first + std::min<std::size_t>(line.size(), 3), number);
        status = static_cast<int>(number);
        if (status != 200)
            return end(status >= 300 && status < 600 ? State::refused : State::malformed,
                       line.empty() ? "no status in the answer" : shownOf(line));
        state = State::stream; // whether fields follow or data
    }

    /// Of an answer in HTTP, and of one in version 1 with fields.
    void judge() {
        status = http_->status;
        const bool granted = asked_ == Asked::push ? status / 100 == 2 : status == 200;
        if (!granted) {
            std::string text = http_->reason;
            if (text.empty())
                text = std::string(boost::beast::http::obsolete_reason(
                    static_cast<boost::beast::http::status>(status)));
            text = std::to_string(status) + " " + text;
            if (!http_->location.empty())
                text += ", moved to " + http_->location;
            return end(State::refused, shownOf(text));
        }
        const std::string_view type = std::string_view(http_->contentType).substr(0, 16);
        if (asked_ == Asked::stream && iequals(type, "gnss/sourcetable"))
            return end(State::table, "no such mountpoint (source table received)");
        state = State::stream;
    }

    /// Behind "ICY 200 OK" stands a blank line, or fields and one, or data at once.
    void readFields() {
        std::size_t at = 0;
        while (true) {
            const std::string_view rest = std::string_view(held_).substr(at);
            const std::size_t length = rest.find('\n');
            const bool whole = length != rest.npos;
            const std::string_view line = rest.substr(0, length);
            if (whole && (line.empty() || line == "\r"))
                return beginBody(at, at + length + 1);
            const Looks looks = looksOf(line, whole);
            if (looks == Looks::other)
                return beginBody(at, at);
            if (at + line.size() > kLongestHead)
                return end(State::malformed, "endless header");
            if (!whole)
                return;
            at += length + 1;
        }
    }

    void beginBody(std::size_t fields, std::size_t body) {
        const std::string head =
            "HTTP/1.1 200 OK\r\n" + readableFields(std::string_view(held_).substr(0, fields));
        held_.erase(0, body);
        http_.emplace();
        if (http_->takeHead(head) == BodyState::malformed)
            return end(State::malformed, "no readable fields in the answer");
        judge();
    }

    void readStream(std::vector<std::uint8_t>& data) {
        if (!http_)
            readFields();
        if (!http_ || state != State::stream)
            return;
        switch (http_->takeBody(held_, data)) {
        case BodyState::flows:
            break;
        case BodyState::ended:
            return end(State::ended, "the peer ended the stream");
        case BodyState::malformed:
            return end(State::malformed, "no readable chunk in the stream");
        }
    }

    Asked asked_;
    std::string password_, credentials_; // not to be shown
    std::string held_;                   // what has come and is not whole
    std::size_t heads_ = 0;              // bytes of heads that were read
    std::optional<HttpAnswer> http_;     // once the head is whole
};

AnswerReader::AnswerReader(const Address& address, Asked asked)
    : reader_(std::make_unique<Reader>(address, asked)) {}
AnswerReader::~AnswerReader() = default;

State AnswerReader::take(std::span<const std::uint8_t> bytes, std::vector<std::uint8_t>& data) {
    return reader_->take(bytes, data);
}

State AnswerReader::close() {
    return reader_->close();
}

State AnswerReader::state() const {
    return reader_->state;
}

int AnswerReader::status() const {
    return reader_->status;
}

std::string AnswerReader::what() const {
    return reader_->what;
}

} // namespace gateway::ntrip
