#include "KelvadromeKit/wire/Card.h"

namespace kelvadrome {

BatchRow BatchRow::decode(const JSONValue& value) {
    const auto object = value.object();
    BatchRow row;
    row.questionId = object.required<std::string>("question_id");
    row.text = object.required<std::string>("text");
    row.defaultAnswer = object.optional<std::string>("default");
    row.agentState = object.required<std::string>("agent_state");
    return row;
}

Card Card::decode(const JSONValue& value) {
    const auto object = value.object();
    Card card;
    card.id = object.required<std::string>("id");
    card.version = object.required<std::int64_t>("version");
    card.kind = object.required<std::string>("kind");
    card.risk = object.valueOr<std::string>("risk", "low");
    card.state = object.valueOr<std::string>("state", "open");
    card.topic = object.optional<std::string>("topic");
    card.agent = object.optional<std::string>("agent");
    card.sessionId = object.optional<std::string>("session_id");
    card.stopType = object.optional<std::string>("stop_type");
    card.title = object.required<std::string>("title");
    card.body = object.valueOr<std::string>("body", "");
    card.options = object.valueOr<std::vector<std::string>>("options", {});
    card.defaultAnswer = object.optional<std::string>("default");
    card.blocking = object.valueOr("blocking", true);
    card.rows = object.optional<std::vector<BatchRow>>("rows");
    card.openedAt = object.required<std::string>("opened_at");
    card.heldUntil = object.optional<std::string>("held_until");
    card.refs = object.optional<std::map<std::string, std::string>>("refs");
    card.deliveryNote = object.lenient<std::string>("delivery_note");
    card.answerable = object.lenient<bool>("answerable").value_or(true);
    card.maybeTyped = object.lenient<bool>("maybe_typed").value_or(false);
    card.menu = object.lenient<bool>("menu").value_or(false);
    const auto screen = object.find("screen");
    card.screen = screen && screen->isObject();
    card.snoozedUntil = object.lenient<std::string>("snoozed_until");
    return card;
}

} // namespace kelvadrome
