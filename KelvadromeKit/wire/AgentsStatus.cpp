#include "KelvadromeKit/wire/AgentsStatus.h"

#include "KelvadromeKit/wire/Envelope.h"

namespace kelvadrome {

namespace {

/// The length of the queue, sent as such or as the queue itself.
std::int64_t decodeQueue(const JSONObject& object) {
    if (const auto length = object.lenient<std::int64_t>("queue"))
        return *length;
    const auto waiting = object.lenient<std::vector<AnyDecodable>>("queue");
    return waiting ? static_cast<std::int64_t>(waiting->size()) : 0;
}

template <class T>
std::vector<T> lenientArray(const JSONObject& object, std::string_view key) {
    return object.lenient<std::vector<T>>(key).value_or(std::vector<T>());
}

} // namespace

AgentsStatus::Session AgentsStatus::Session::decode(const JSONValue& value) {
    const auto object = value.object();
    Session session;
    session.agent = object.required<std::string>("agent");
    session.sessionId = object.required<std::string>("session_id");
    session.label = object.optional<std::string>("label");
    session.status = object.required<std::string>("status");
    session.topic = object.optional<std::string>("topic");
    session.kind = object.optional<std::string>("kind");
    session.detail = object.optional<std::string>("doing");
    session.topicTitle = object.optional<std::string>("topic_title");
    session.callsign = object.lenient<std::string>("callsign");
    session.host = object.lenient<std::string>("host");
    session.tty = object.lenient<std::string>("tty");
    session.folder = object.lenient<std::string>("folder");
    session.pane = object.lenient<std::string>("pane");
    return session;
}

AgentsStatus::Holder AgentsStatus::Holder::decode(const JSONValue& value) {
    const auto object = value.object();
    return {object.optional<std::string>("handoff"), object.optional<std::string>("label")};
}

AgentsStatus::Lock AgentsStatus::Lock::decode(const JSONValue& value) {
    const auto object = value.object();
    return {object.required<std::string>("resource"), object.optional<Holder>("holder"), decodeQueue(object)};
}

AgentsStatus::Autopilot AgentsStatus::Autopilot::decode(const JSONValue& value) {
    const auto object = value.object();
    Autopilot autopilot;
    autopilot.scope = object.valueOr<std::string>("scope", "*");
    autopilot.actionClass = object.required<std::string>("action_class");
    autopilot.level = object.valueOr<std::string>("level", "L0");
    autopilot.label = object.optional<std::string>("label");
    autopilot.mode = object.optional<std::string>("mode");
    autopilot.floor = object.valueOr("floor", false);
    return autopilot;
}

AgentsStatus AgentsStatus::decode(const JSONValue& value) {
    const auto object = value.object();
    return {lenientArray<Session>(object, "sessions"), lenientArray<Lock>(object, "locks"),
        lenientArray<Autopilot>(object, "autopilot")};
}

} // namespace kelvadrome
