#include "KelvadromeKit/delivery/DeliverJob.h"

#include "KelvadromeKit/delivery/LiveTime.h"
#include "KelvadromeKit/support/Text.h"

namespace kelvadrome {

namespace {

constexpr std::size_t maxReason = 200; // characters

} // namespace

DeliverStep DeliverStep::decode(const JSONValue& value) {
    const auto object = value.object();
    const auto kind = object.required<std::string>("kind");
    if (kind == "key")
        return key(object.required<std::string>("key"));
    if (kind == "escape")
        return escape();
    if (kind == "text")
        return text(object.required<std::string>("text"));
    if (kind != "nav")
        throw DecodingError("kind", "unknown step");

    auto name = object.required<std::string>("key");
    if (name != "up" && name != "down" && name != "enter")
        throw DecodingError("key", "unknown nav key");
    return nav(std::move(name));
}

DeliverJob::Open DeliverJob::Open::decode(const JSONValue& value) {
    const auto object = value.object();
    Open open;
    open.cwd = object.required<std::string>("cwd");
    open.argv = object.required<std::vector<std::string>>("argv");
    open.prompt = object.optional<std::string>("prompt");
    return open;
}

DeliverJob::Screen DeliverJob::Screen::decode(const JSONValue& value) {
    const auto object = value.object();
    Screen screen;
    screen.profile = object.required<std::string>("profile");
    screen.want = object.optional<std::string>("want");
    screen.folder = object.optional<std::string>("folder");
    return screen;
}

std::optional<WallTime> DeliverJob::expiry() const {
    return LiveTime::parse(expiresAt);
}

DeliverJob DeliverJob::decode(const JSONValue& value) {
    const auto object = value.object();
    DeliverJob job;
    job.id = object.required<std::string>("id");
    job.type = object.required<std::string>("type");
    job.cardId = object.optional<std::string>("card_id");
    job.agent = object.required<std::string>("agent");
    job.sessionId = object.optional<std::string>("session_id");
    job.pid = object.optional<std::int64_t>("pid");
    job.pgid = object.optional<std::int64_t>("pgid");
    job.tty = object.optional<std::string>("tty");
    job.host = object.required<std::string>("host");
    job.hostRef = object.optional<std::string>("host_ref");
    job.steps = object.optional<std::vector<DeliverStep>>("steps");
    job.codexThread = object.optional<std::string>("codex_thread");
    job.open = object.optional<Open>("open");
    job.screen = object.optional<Screen>("screen");
    job.menu = object.optional<std::vector<std::string>>("menu");
    job.presence = object.required<std::string>("presence");
    job.expiresAt = object.required<std::string>("expires_at");
    return job;
}

DeliverClaimOut DeliverClaimOut::decode(const JSONValue& value) {
    return {value.object().required<std::vector<DeliverJob>>("jobs")};
}

boost::json::object JobOutcome::wire() const {
    boost::json::object object{{"outcome", outcome}, {"path", path}};
    if (reason)
        object["reason"] = Text::prefix(*reason, maxReason);
    return object;
}

DeliverReportOut DeliverReportOut::decode(const JSONValue& value) {
    const auto object = value.object();
    DeliverReportOut out;
    out.proceed = object.optional<bool>("proceed");
    out.reason = object.optional<std::string>("reason");
    return out;
}

CrewLabelRow CrewLabelRow::decode(const JSONValue& value) {
    const auto object = value.object();
    CrewLabelRow row;
    row.key = object.required<std::string>("key");
    row.host = object.required<std::string>("host");
    row.tty = object.optional<std::string>("tty");
    row.callsign = object.optional<std::string>("callsign");
    row.status = object.required<std::string>("status");
    return row;
}

CrewLabelList CrewLabelList::decode(const JSONValue& value) {
    const auto object = value.object();
    CrewLabelList list;
    list.sessions = object.required<std::vector<CrewLabelRow>>("sessions");
    list.crewLabels = object.optional<bool>("crew_labels");
    return list;
}

} // namespace kelvadrome
