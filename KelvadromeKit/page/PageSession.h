#pragma once

#include "KelvadromeKit/page/LocalHTTP.h"
#include "KelvadromeKit/support/Task.h"
#include "KelvadromeKit/wire/Envelope.h"
#include "KelvadromeKit/wire/Records.h"

#include <boost/json/object.hpp>
#include <boost/json/serialize.hpp>

#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>

namespace kelvadrome {

/// The login to the daemon's page and the calls that carry it. Its state belongs to a strand of its own: call
/// from any executor; requests interleave where they wait. Held by shared_ptr, since its tasks may outlive a
/// caller.
class PageSession : public std::enable_shared_from_this<PageSession> {
public:
    static constexpr const char* cookieName = "kd_session";

    /// Held in memory only.
    struct Credentials {
        std::string base; // "http://127.0.0.1:<port>", no path
        std::int64_t port = 0;
        std::string cookieName;
        std::string cookieValue; // percent-decoded
        std::string csrf;
        std::string setCookieHeader; // raw, for the web view

        bool operator==(const Credentials&) const = default;
    };

    class Failure : public std::exception {
    public:
        enum class Kind { loginRefused, badLoginURL, noCookie };
        explicit Failure(Kind kind, std::int64_t status = 0);

        Kind kind() const { return kind_; }
        std::int64_t status() const { return status_; } // of loginRefused; 0 when the reply wasn't HTTP
        const char* what() const noexcept override { return description_.c_str(); }

    private:
        Kind kind_;
        std::int64_t status_;
        std::string description_;
    };

    /// The reply of the calls that change state.
    struct ReceiptOut {
        std::optional<std::string> line; // receipt.line
        std::optional<std::string> status;

        static ReceiptOut decode(const JSONValue& value);
        bool operator==(const ReceiptOut&) const = default;
    };

    using Mint = std::function<Task<LoginLink>()>;

    PageSession(Executor executor, std::shared_ptr<LocalHTTP> http, Mint mint);

    /// What is held now; no work.
    Task<std::optional<Credentials>> current();
    /// What is held, or a fresh login.
    Task<Credentials> ensure();
    Task<> reset();

    Task<ReceiptOut> answer(std::string cardId, std::int64_t version, std::string answer);
    Task<ReceiptOut> acceptDefaults(
        std::string cardId, std::int64_t version, std::map<std::string, std::string> defaults);
    Task<ReceiptOut> cancelHold(std::string cardId);

    /// A POST with cookie and CSRF header. "unauthorized" is answered by one new login and one more try; a
    /// connection that doesn't come about ends the session, so that the next call logs in where the daemon
    /// is.
    template <class T>
    Task<T> post(std::string path, boost::json::object json) {
        auto self = shared_from_this();
        auto body = boost::json::serialize(json);
        const auto response = co_await runOn(strand_, exchange(self, std::move(path), std::move(body)));
        co_return Envelope::decode<T>(response);
    }

    /// The value of a cookie in a Set-Cookie header, percent-decoded.
    static std::optional<std::string> cookieValue(std::string_view name, std::string_view header);

private:
    /// On the strand. The reply that stands: after a re-login when the first was "unauthorized".
    static Task<HTTPResponse> exchange(std::shared_ptr<PageSession> self, std::string path, std::string body);
    static Task<Credentials> ensureOnStrand(std::shared_ptr<PageSession> self);
    static Task<Credentials> login(std::shared_ptr<PageSession> self);
    static Task<HTTPResponse> postOnce(std::shared_ptr<PageSession> self, std::string path, std::string body);

    Executor strand_;
    std::shared_ptr<LocalHTTP> http_;
    Mint mint_;
    std::optional<Credentials> credentials_; // on the strand only
};

} // namespace kelvadrome
