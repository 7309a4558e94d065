#include "KelvadromeKit/page/BridgeMessage.h"

#include "KelvadromeKit/page/SkillRunCommand.h"

#include <fmt/format.h>

namespace kelvadrome::BridgeMessage {

namespace {

/// A string as it is, a number in its string form.
std::optional<std::string> stringOrNumber(const JSONObject& body, std::string_view key) {
    const auto value = body.find(key);
    if (!value)
        return std::nullopt;
    if (const auto text = value->string())
        return std::string(*text);
    if (const auto whole = value->integer())
        return std::to_string(*whole);
    if (const auto number = value->number())
        return fmt::format("{}", *number);
    return std::nullopt;
}

Message parseAction(const std::string& type, const JSONObject& body) {
    auto action = body.lenient<std::string>("action");
    if (!action)
        return Other{type, std::nullopt};
    if (*action == "chooseFolder")
        return ChooseFolder{};
    if (*action == "runSkill") {
        auto runId = body.lenient<std::string>("run_id");
        auto command = body.lenient<std::string>("command");
        if (runId && command && SkillRunCommand::validate(*runId, *command)) {
            return RunSkill{std::move(*runId), std::move(*command)};
        }
    }
    return Other{type, std::move(action)};
}

} // namespace

Message parse(const std::string& type, const JSONObject& body) {
    const Message other = Other{type, std::nullopt};
    if (type == "ready")
        return Ready{};
    if (type == "onboarding_done")
        return OnboardingDone{};
    if (type == "action")
        return parseAction(type, body);
    if (type == "onboarding") {
        return Onboarding{
            stringOrNumber(body, "step"), body.lenient<bool>("primary_enabled").value_or(false)};
    }
    if (type == "route") {
        auto route = body.lenient<std::string>("route");
        return route ? Message(Route{std::move(*route)}) : other;
    }
    if (type == "voice") {
        auto action = body.lenient<std::string>("action");
        return action ? Message(Voice{std::move(*action)}) : other;
    }
    if (type == "mode") {
        const auto word = body.lenient<std::string>("mode");
        const auto mode = word ? interfaceModeFromRawValue(*word) : std::nullopt;
        return mode ? Message(Mode{*mode}) : other;
    }
    return other;
}

} // namespace kelvadrome::BridgeMessage
