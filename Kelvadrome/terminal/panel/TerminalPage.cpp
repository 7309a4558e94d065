#include "Kelvadrome/terminal/panel/TerminalPage.h"

#include "KelvadromeKit/attention/InboxLogic.h"
#include "KelvadromeKit/support/Text.h"

#include <boost/url/encode.hpp>
#include <boost/url/parse.hpp>
#include <boost/url/rfc/unreserved_chars.hpp>
#include <boost/url/url.hpp>
#include <fmt/format.h>

namespace kelvadrome {

namespace {

constexpr double usualLifetime = 60; // seconds, of a link that doesn't say
constexpr const char* openTitle = "Open kelvadrome in your browser:";

std::string withItem(std::string path, const std::string& name, const std::string& value) {
    const auto encoded = boost::urls::encode(value, boost::urls::unreserved_chars);
    return path + (path.contains('?') ? "&" : "?") + name + "=" + encoded;
}

/// The path that a page address of this shell stands for in a browser.
std::optional<std::string> pathIn(const std::string& address) {
    const auto parsed = boost::urls::parse_uri(address);
    if (!parsed)
        return std::nullopt;
    boost::urls::url url(*parsed);
    url.params().erase("shell");
    if (url.encoded_query().empty())
        url.remove_query();
    return std::string(url.encoded_resource());
}

} // namespace

TerminalPage::TerminalPage(Dependencies dependencies)
    : with_(std::move(dependencies)), tasks_(with_.executor) {}

void TerminalPage::load(PageSession::Credentials credentials, NavSection, ScopeFilter) {
    base = credentials.base;
    cookieValue = credentials.cookieValue;
}

void TerminalPage::navigate(std::string path, ScopeFilter scope, std::optional<std::string> focus) {
    if (scope != ScopeFilter::all)
        path = withItem(path, "scope", std::string(rawValue(scope)));
    if (!focus)
        return show(openTitle, path);
    show("Open this page to review:", withItem(path, "card", *focus));
}

void TerminalPage::search(std::string query, ScopeFilter) {
    show("Open this page to search:", withItem("/search", "q", query));
}

void TerminalPage::callShell(std::string, std::optional<std::string> fallback) {
    const auto path = fallback ? pathIn(*fallback) : std::nullopt;
    if (path)
        show(openTitle, *path);
}

void TerminalPage::show(std::string title, std::string next) {
    if (quiet_)
        return;
    showing_.cancel();
    with_.board->setNote(std::nullopt);
    with_.board->setLink(PanelLink{title, {}, {"Making a login link"}});
    showing_ = tasks_.launch("page link", mintAndShow(shared_from_this(), std::move(title), std::move(next)));
}

void TerminalPage::dismiss() {
    showing_.cancel();
    with_.board->setLink(std::nullopt);
}

Task<> TerminalPage::mintAndShow(std::shared_ptr<TerminalPage> self, std::string title, std::string next) {
    auto& with = self->with_;
    auto minted = co_await attempt(with.mint());
    const bool replaced = co_await taskCancelled();
    if (replaced)
        co_return; // a later request has the panel's link by now
    LoginLink login;
    std::string url;
    try {
        login = minted.take();
        url = browserLink(login.url, next);
    } catch (const std::exception& error) {
        with.board->setLink(std::nullopt);
        with.board->setNote(std::string("The page could not be opened. ") + error.what());
        co_return;
    }
    const auto expires = InboxLogic::date(login.expiresAt);
    const double lifetime = expires ? (*expires - with.clock->now()).count() : usualLifetime;
    PanelLink link{std::move(title), url};
    if (with.tunnelTo.empty()) {
        link.notes = {"It opens once. y copies it, Esc takes it away."};
    } else {
        const auto port = std::string(boost::urls::parse_uri(url)->port());
        link.tunnel = fmt::format("ssh -L {0}:127.0.0.1:{0} {1}", port, with.tunnelTo);
        link.notes = {"It opens once. Y copies the ssh line, y the link, Esc takes both away."};
    }
    with.board->setLink(std::move(link));
    std::shared_ptr<void> opened;
    if (with.openLink)
        opened = with.openLink(url);
    co_await with.clock->sleep(lifetime);
    with.board->setLink(std::nullopt);
}

std::string TerminalPage::tunnelTarget(const EnvironmentMap& environment) {
    const auto connection = environment.find("SSH_CONNECTION");
    if (connection == environment.end())
        return {};
    // The client's address and port, then ours as the client knows them.
    const auto parts = Text::split(connection->second, ' ', Text::EmptyPieces::drop);
    const auto user = environment.find("USER");
    const std::string host = parts.size() == 4 ? std::string(parts[2]) : "this-machine";
    std::string target = user == environment.end() ? host : user->second + "@" + host;
    if (parts.size() == 4 && parts[3] != "22")
        target = fmt::format("-p {} {}", parts[3], target);
    return target;
}

std::string TerminalPage::browserLink(const std::string& login, const std::string& next) {
    using Failure = PageSession::Failure;
    const auto parsed = boost::urls::parse_uri(login);
    if (!parsed || parsed->host() != "127.0.0.1" || !parsed->has_port()) {
        throw Failure(Failure::Kind::badLoginURL);
    }
    boost::urls::url url(*parsed);
    auto items = url.params();
    for (const auto* name : {"surface", "next"})
        items.erase(name);
    return withItem(withItem(std::string(url.buffer()), "surface", "browser"), "next", next);
}

} // namespace kelvadrome
