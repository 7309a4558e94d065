#pragma once

#include "KelvadromeKit/page/LocalHTTP.h"
#include "KelvadromeKit/page/PageSession.h"
#include "KelvadromeKit/support/Task.h"

#include <algorithm>
#include <map>
#include <memory>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

namespace kelvadrome::test {

/// The daemon's page port without a port. Each login is a new session, "s1", "s2" and so on. A POST without a
/// reply of its own is answered with an empty receipt. All on one executor.
class FakePage : public LocalHTTP {
public:
    std::vector<HTTPRequest> posts;
    std::map<std::string, HTTPResponse> replies; // by path
    int logins = 0;
    bool refuseLogin = false;
    bool holdPosts = false; // nothing is answered before `release`
    bool loseReplies = false;

    static HTTPResponse data(const std::string& json) {
        return {200, {}, R"({"ok":true,"data":)" + json + "}"};
    }
    static HTTPResponse failure(const std::string& code, const std::string& message) {
        return {400, {}, R"({"ok":false,"error":{"code":")" + code + R"(","message":")" + message + R"("}})"};
    }

    void release() {
        holdPosts = false;
        for (const auto& post : std::exchange(held_, {}))
            post(true);
    }

    Task<HTTPResponse> exchange(HTTPRequest request) override {
        const std::string path = request.url.substr(std::min(request.url.size(), origin().size()));
        if (path.starts_with("/login")) {
            if (refuseLogin)
                co_return HTTPResponse{401, {}, {}};
            const auto value = "s" + std::to_string(++logins);
            co_return HTTPResponse{303, {{"set-cookie", "kd_session=" + value + "; Path=/; HttpOnly"}}, {}};
        }
        if (path == "/v1/page/me")
            co_return data(R"({"csrf":"c"})");
        posts.push_back(request);
        co_return co_await answer(path);
    }

    static std::string origin() { return "http://127.0.0.1:4711"; }
    static Task<LoginLink> mint() { co_return LoginLink{origin() + "/login?t=1", ""}; }

protected:
    /// The reply to the latest post.
    virtual Task<HTTPResponse> answer(std::string path) {
        if (holdPosts) {
            co_await suspendUntil<bool>(
                [this](Completion<bool> finish) { held_.push_back(std::move(finish)); });
        }
        if (loseReplies)
            throw std::runtime_error("The reply was lost.");
        const auto reply = replies.find(path);
        if (reply != replies.end())
            co_return reply->second;
        co_return data("{}");
    }

private:
    std::vector<Completion<bool>> held_;
};

} // namespace kelvadrome::test
