#include "Kelvadrome/model/PressedAnswer.h"

#include "KelvadromeKit/attention/InboxLogic.h"
#include "KelvadromeKit/page/PageSession.h"
#include "KelvadromeKit/support/Text.h"
#include "KelvadromeKit/wire/Envelope.h"
#include "KelvadromeKit/wire/HTTPWire.h"

#include <algorithm>

namespace kelvadrome {

namespace {

constexpr double secondLook = 2.0; // seconds after the first
constexpr std::size_t longestLabel = 48;

using Known = PressedAnswer::Known;

/// False when nothing more is to be said of the answer.
bool stands(PressedAnswer& answer, const Card& card, double began, double ended) {
    if (InboxLogic::isOnItsWay(card))
        return answer.known == Known::taken; // of a lost one nobody knows whether this is it
    if (card.version != answer.card.version || answer.known == Known::taken)
        return false;
    if (answer.known != Known::unclear)
        return true;
    if (!answer.seenOpen) {
        answer.seenOpen = ended;
    } else if (began >= *answer.seenOpen + secondLook) {
        answer.known = Known::refused;
        answer.reason = "the daemon did not take it";
    }
    return true;
}

} // namespace

bool provesRefusal(const std::exception_ptr& error) {
    try {
        std::rethrow_exception(error);
    } catch (const DaemonError& refused) {
        return refused.code() != "internal"; // it may have failed after the answer was taken
    } catch (const PageSession::Failure&) {
        return true; // there was no login to send it under
    } catch (const TransportError&) {
        return true; // of the socket, which only the login needs
    } catch (const NotConnected&) {
        return true;
    } catch (...) {
        return false;
    }
}

PressedAnswers settled(PressedAnswers pressed, const std::vector<Card>& cards, double began, double ended) {
    for (auto at = pressed.begin(); at != pressed.end();) {
        auto& [id, answer] = *at;
        const auto card = std::ranges::find(cards, id, &Card::id);
        const bool untold = answer.known == Known::sending || began < answer.since;
        const bool stays = untold || (card != cards.end() && stands(answer, *card, began, ended));
        at = stays ? std::next(at) : pressed.erase(at);
    }
    return pressed;
}

std::string inQuotes(const std::string& label) {
    const auto beginning = Text::prefix(label, longestLabel);
    return "“" + std::string(beginning) + (beginning.size() < label.size() ? "…”" : "”");
}

} // namespace kelvadrome
