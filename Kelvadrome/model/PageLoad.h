#pragma once

#include "Kelvadrome/model/HoldOff.h"

#include <optional>
#include <string>
#include <variant>
#include <vector>

namespace kelvadrome {

/// What happens to the page: wishes of the shell, answers to an action, and what the web view tells.
namespace PageEvent {

/// A page session begins: `base` is its origin, `url` the first address of it to show.
struct SessionBegan {
    std::string base;
    std::string url;
};
/// Another address of the same session is wanted.
struct AddressWanted {
    std::string url;
};
/// The user presses "Try again".
struct TryAgainPressed {};
/// The page is to be loaded again, wherever it has gone.
struct ReloadWanted {};
/// The answer to `PageAction::Prepare`: why nothing may be sent to the port, if so, and whether the cookie is
/// in its place.
struct Prepared {
    std::optional<std::string> refusal;
    bool cookiePlaced = true;
};
/// A load begins, ours or one that the page itself asked for.
struct LoadStarted {};
/// Bytes have come.
struct LoadProgressed {};
/// The new document replaces the old one in the view.
struct DocumentShown {};
/// All of the shown document has come; its images may be missing.
struct DocumentArrived {};
/// The load has ended, well or not. After a failure this comes, too.
struct LoadFinished {};
struct LoadFailed {
    enum class Kind {
        cancelled,  // another load took its place
        notAllowed, // it was led away from the daemon
        broken,     // anything else
    };
    Kind kind;
    std::string url;
    std::string message; // of `broken`
};
/// The daemon answered with an error of its own (500 and above); such a reply is not shown.
struct ServerErrorCame {
    unsigned status;
    std::string url;
};
/// The web process has ended; `shown` is the address that it showed, wherever that was.
struct ProcessEnded {
    bool outOfMemory = false;
    std::string shown;
};
/// The time that `wakeAt` named has come. `processAnswers` is false when the web process hangs.
struct TimeCame {
    bool processAnswers = true;
};

} // namespace PageEvent

/// What is to be done about it.
namespace PageAction {

/// Look at the port and put the cookie in its place, then answer with `Prepared`; what an earlier one has
/// under way is given up.
struct Prepare {
    bool operator==(const Prepare&) const = default;
};
struct Request {
    std::string url;
    bool operator==(const Request&) const = default;
};
struct Reload {
    bool operator==(const Reload&) const = default;
};
struct StopLoading {
    bool operator==(const StopLoading&) const = default;
};
struct EndProcess {
    bool operator==(const EndProcess&) const = default;
};
struct ShowPage {
    bool operator==(const ShowPage&) const = default;
};
/// Words in the page's place, with a button that tries again.
struct ShowTrouble {
    std::string title;
    std::string words; // full sentences
    bool operator==(const ShowTrouble&) const = default;
};
/// The page is ready to be spoken to. `first`: for the first time in this session.
struct PageLoaded {
    bool first = false;
    bool operator==(const PageLoaded&) const = default;
};

} // namespace PageAction

/// How the daemon's page gets into its view and stays there. No request goes out before the port has been
/// looked at and the session's cookie is in its place. A load that fails or brings nothing for a minute, and
/// a web process that ends, give way to words, and are tried again by themselves after a pause that grows.
///
/// A value that knows neither toolkit nor clock: events go in, actions come out, to be carried out in their
/// order. Times are seconds of `Clock::uptime`.
class PageLoad {
public:
    using Event = std::variant<PageEvent::SessionBegan, PageEvent::AddressWanted, PageEvent::TryAgainPressed,
        PageEvent::ReloadWanted, PageEvent::Prepared, PageEvent::LoadStarted, PageEvent::LoadProgressed,
        PageEvent::DocumentShown, PageEvent::DocumentArrived, PageEvent::LoadFinished, PageEvent::LoadFailed,
        PageEvent::ServerErrorCame, PageEvent::ProcessEnded, PageEvent::TimeCame>;
    using Action =
        std::variant<PageAction::Prepare, PageAction::Request, PageAction::Reload, PageAction::StopLoading,
            PageAction::EndProcess, PageAction::ShowPage, PageAction::ShowTrouble, PageAction::PageLoaded>;
    using Actions = std::vector<Action>;

    /// A load that brings nothing for this many seconds has failed.
    static constexpr double quietLimit = 60;

    Actions handle(const Event& event, double now);
    /// When `TimeCame` is due next, if at all. Changes with each event.
    std::optional<double> wakeAt() const;

    /// A page has finished loading in this session, and nothing has happened to it since: it can be called.
    bool loaded() const { return document_ == Document::loaded; }
    /// There is a document that scripts can run in.
    bool hasDocument() const { return document_ != Document::none; }
    /// Words stand in the page's place.
    bool inTrouble() const { return inTrouble_; }

private:
    enum class Document {
        none,   // the web process has not shown one, or has ended
        shown,  // one shows that is not (or no longer) the loaded page of this session
        loaded, // the page has finished loading
    };
    enum class Load {
        none,     // nothing is under way, or nothing that has a limit
        underWay, // each piece has to come in time
        arrived,  // the document is whole, so what is missing may take its time
        failed,   // and has been dealt with; what else is told of it doesn't count
    };

    Actions on(const PageEvent::SessionBegan& event, double now);
    Actions on(const PageEvent::AddressWanted& event, double now);
    Actions on(const PageEvent::TryAgainPressed& event, double now);
    Actions on(const PageEvent::ReloadWanted& event, double now);
    Actions on(const PageEvent::Prepared& event, double now);
    Actions on(const PageEvent::LoadStarted& event, double now);
    Actions on(const PageEvent::LoadProgressed& event, double now);
    Actions on(const PageEvent::DocumentShown& event, double now);
    Actions on(const PageEvent::DocumentArrived& event, double now);
    Actions on(const PageEvent::LoadFinished& event, double now);
    Actions on(const PageEvent::LoadFailed& event, double now);
    Actions on(const PageEvent::ServerErrorCame& event, double now);
    Actions on(const PageEvent::ProcessEnded& event, double now);
    Actions on(const PageEvent::TimeCame& event, double now);

    Actions prepare();
    Actions tryAgain();
    Actions giveUp(bool processAnswers, double now);
    PageAction::ShowTrouble trouble(const char* title, const std::string& words, double now);
    void beginLoad(double now);
    void endLoad();

    std::string base_;   // the session's origin; empty before the first
    std::string wanted_; // the address that was asked for last
    bool preparing_ = false;
    bool requested_ = false; // the web view hasn't begun with our request yet
    bool firstLoadDue_ = false;
    bool inTrouble_ = false;
    Document document_ = Document::none;
    Load load_ = Load::none;
    double progressedAt_ = 0; // when the load under way last brought something
    std::optional<double> retryAt_;
    HoldOff holdOff_;
};

} // namespace kelvadrome
