#include "KelvadromeKit/page/PageSession.h"

#include "KelvadromeKit/page/PercentCoding.h"
#include "KelvadromeKit/support/Text.h"

#include <boost/asio/strand.hpp>
#include <boost/url/parse.hpp>
#include <boost/url/url.hpp>
#include <fmt/format.h>

namespace kelvadrome {

namespace {

constexpr double requestTimeout = 10; // seconds

struct MeOut {
    std::string csrf;

    static MeOut decode(const JSONValue& value) { return {value.object().required<std::string>("csrf")}; }
};

std::string describeFailure(PageSession::Failure::Kind kind, std::int64_t status) {
    switch (kind) {
    case PageSession::Failure::Kind::loginRefused:
        return fmt::format("The login was refused ({}).", status);
    case PageSession::Failure::Kind::badLoginURL:
        return "The login link is not one of this machine.";
    case PageSession::Failure::Kind::noCookie:
        break;
    }
    return "The login brought no session.";
}

/// The link with "surface=mac" as its one item of that name. Absent for anything but a port on the loopback
/// address.
std::optional<boost::urls::url> loginURL(const std::string& link) {
    const auto parsed = boost::urls::parse_uri(link);
    if (!parsed || parsed->encoded_host() != "127.0.0.1" || parsed->port_number() == 0)
        return std::nullopt;
    boost::urls::url url(*parsed);
    auto items = url.params();
    items.erase("surface");
    items.append({"surface", "mac"});
    return url;
}

HTTPRequest pageRequest(std::string method, std::string url) {
    HTTPRequest request;
    request.method = std::move(method);
    request.url = std::move(url);
    request.timeout = requestTimeout;
    return request;
}

bool isUnauthorized(const HTTPResponse& response) {
    try {
        Envelope::decode<AnyDecodable>(response);
    } catch (const DaemonError& error) {
        return error.code() == "unauthorized";
    } catch (const DecodingError&) {
    }
    return false;
}

bool isNotConnected(const std::exception_ptr& error) {
    try {
        std::rethrow_exception(error);
    } catch (const NotConnected&) {
        return true;
    } catch (...) {
        return false;
    }
}

boost::json::object cardBody(const std::string& cardId, std::int64_t version) {
    return {{"card_id", cardId}, {"version", version}};
}

} // namespace

PageSession::Failure::Failure(Kind kind, std::int64_t status)
    : kind_(kind), status_(status), description_(describeFailure(kind, status)) {}

PageSession::ReceiptOut PageSession::ReceiptOut::decode(const JSONValue& value) {
    const auto object = value.object();
    ReceiptOut out;
    if (const auto receipt = object.find("receipt"); receipt && receipt->isObject()) {
        out.line = receipt->object().optional<std::string>("line");
    }
    out.status = object.optional<std::string>("status");
    return out;
}

PageSession::PageSession(Executor executor, std::shared_ptr<LocalHTTP> http, Mint mint)
    : strand_(asio::make_strand(executor)), http_(std::move(http)), mint_(std::move(mint)) {}

Task<std::optional<PageSession::Credentials>> PageSession::current() {
    co_return co_await runOn(
        strand_, [](std::shared_ptr<PageSession> self) -> Task<std::optional<Credentials>> {
            co_return self->credentials_;
        }(shared_from_this()));
}

Task<PageSession::Credentials> PageSession::ensure() {
    co_return co_await runOn(strand_, ensureOnStrand(shared_from_this()));
}

Task<> PageSession::reset() {
    co_await runOn(strand_, [](std::shared_ptr<PageSession> self) -> Task<> {
        self->credentials_.reset();
        co_return;
    }(shared_from_this()));
}

Task<PageSession::ReceiptOut> PageSession::answer(
    std::string cardId, std::int64_t version, std::string answer) {
    auto body = cardBody(cardId, version);
    body["answer"] = answer;
    co_return co_await post<ReceiptOut>("/v1/cards/answer", std::move(body));
}

Task<PageSession::ReceiptOut> PageSession::acceptDefaults(
    std::string cardId, std::int64_t version, std::map<std::string, std::string> defaults) {
    auto body = cardBody(cardId, version);
    boost::json::object answers;
    for (const auto& [question, answer] : defaults)
        answers[question] = answer;
    body["answer"] = std::move(answers);
    body["accept_all_defaults"] = true;
    co_return co_await post<ReceiptOut>("/v1/cards/answer", std::move(body));
}

Task<PageSession::ReceiptOut> PageSession::cancelHold(std::string cardId) {
    boost::json::object body{{"card_id", cardId}};
    co_return co_await post<ReceiptOut>("/v1/page/cancel", std::move(body));
}

Task<HTTPResponse> PageSession::exchange(
    std::shared_ptr<PageSession> self, std::string path, std::string body) {
    auto response = co_await postOnce(self, path, body);
    if (!isUnauthorized(response))
        co_return response;
    // Sessions live in the daemon's memory: after its restart the next call logs in anew, once.
    self->credentials_.reset();
    co_return co_await postOnce(self, std::move(path), std::move(body));
}

Task<HTTPResponse> PageSession::postOnce(
    std::shared_ptr<PageSession> self, std::string path, std::string body) {
    const auto credentials = co_await ensureOnStrand(self);
    auto request = pageRequest("POST", credentials.base + path);
    request.headers = {{"Content-Type", "application/json"},
        {"Cookie", credentials.cookieName + "=" + percentEncoded(credentials.cookieValue)},
        {"x-kd-csrf", credentials.csrf}};
    request.body = std::move(body);
    auto reply = co_await attempt(self->http_->exchange(std::move(request)));
    // The daemon that knew this session is gone from there, and whoever comes to the port next is not to get
    // it.
    if (!reply && isNotConnected(reply.error()) && self->credentials_ == credentials)
        self->credentials_.reset();
    co_return reply.take();
}

Task<PageSession::Credentials> PageSession::ensureOnStrand(std::shared_ptr<PageSession> self) {
    if (self->credentials_)
        co_return *self->credentials_;
    // Two callers may both log in here, since the strand is free while one waits; the last to finish stays.
    auto fresh = co_await login(self);
    self->credentials_ = fresh;
    co_return fresh;
}

Task<PageSession::Credentials> PageSession::login(std::shared_ptr<PageSession> self) {
    const auto link = co_await self->mint_();
    const auto url = loginURL(link.url);
    if (!url)
        throw Failure(Failure::Kind::badLoginURL);

    auto request = pageRequest("GET", std::string(url->buffer()));
    const auto reply = co_await self->http_->exchange(std::move(request));
    if (reply.status != 303 && reply.status != 302 && reply.status != 200) {
        throw Failure(Failure::Kind::loginRefused, reply.status);
    }
    const auto header = reply.headers.find("set-cookie");
    const auto cookie =
        header != reply.headers.end() ? cookieValue(cookieName, header->second) : std::nullopt;
    if (!cookie)
        throw Failure(Failure::Kind::noCookie);

    Credentials credentials;
    credentials.port = url->port_number();
    credentials.base = fmt::format("http://127.0.0.1:{}", credentials.port);
    credentials.cookieName = cookieName;
    credentials.cookieValue = *cookie;
    credentials.setCookieHeader = header->second;

    auto me = pageRequest("GET", credentials.base + "/v1/page/me");
    me.headers = {{"Cookie", credentials.cookieName + "=" + credentials.cookieValue}};
    const auto answer = co_await self->http_->exchange(std::move(me));
    credentials.csrf = Envelope::decode<MeOut>(answer).csrf;
    co_return credentials;
}

std::optional<std::string> PageSession::cookieValue(std::string_view name, std::string_view header) {
    const auto start = std::string(name) + "=";
    for (const auto piece : Text::split(header, ';', Text::EmptyPieces::drop)) {
        const auto trimmed = Text::trimBlanks(piece);
        if (!trimmed.starts_with(start))
            continue;
        const auto raw = trimmed.substr(start.size());
        return percentDecoded(raw).value_or(std::string(raw));
    }
    return std::nullopt;
}

} // namespace kelvadrome
