#include "Kelvadrome/model/NativeActions.h"

#include "Kelvadrome/model/MenuPanel.h"
#include "KelvadromeKit/page/BridgeMessage.h"
#include "KelvadromeKit/support/Files.h"

#include <map>
#include <variant>

namespace kelvadrome::NativeActions {

namespace {

using Action = void (*)(const JSONObject& body, AppModel& model);

std::optional<std::string> text(const JSONObject& body, std::string_view key) {
    return body.lenient<std::string>(key);
}

void bringEdgeToFront(const JSONObject&, AppModel& model) {
    model.screen().activateApplication(edgeBundleId);
}

void openFolder(const JSONObject& body, AppModel& model) {
    if (auto topic = text(body, "topic"))
        model.launch("topic folder", model.revealTopicFolder(std::move(*topic)));
}

void openReceiptFile(const JSONObject& body, AppModel& model) {
    if (auto path = text(body, "path"))
        model.reveal(std::move(*path));
}

void terminalAccess(const JSONObject&, AppModel& model) {
    model.launch("terminal access", model.sendTerminalAccess());
}

void allowTerminal(const JSONObject& body, AppModel& model) {
    const auto word = text(body, "app");
    const auto app = word ? terminalAppFromRawValue(*word) : std::nullopt;
    if (app)
        model.launch("terminal consent", model.allowTerminal(*app));
}

void copyCommand(std::string command, const char* notice, AppModel& model) {
    model.screen().copyText(std::move(command));
    model.setNotice(notice);
}

/// Only commands that begin a handoff reach the clipboard.
void delegate(const JSONObject& body, AppModel& model) {
    auto command = text(body, "command");
    const auto begins = [&](const std::string& program) { return command->starts_with(program + " "); };
    if (!command || !(begins("kd") || begins("q") || begins(kdCommand(model.state()))))
        return;
    copyCommand(std::move(*command), "Command copied. Paste it in Terminal to start the handoff.", model);
}

const std::map<std::string, Action, std::less<>> otherActions = {
    {"bringEdgeToFront", bringEdgeToFront},
    {"openFolder", openFolder},
    {"openReceiptFile", openReceiptFile},
    {"terminalAccess", terminalAccess},
    {"allowTerminal", allowTerminal},
    {"delegate", delegate},
};

/// What each message does; the overloads cover them all.
struct Dispatch {
    const JSONObject& body;
    AppModel& model;

    void operator()(BridgeMessage::Route& message) const { model.followPageRoute(std::move(message.route)); }
    void operator()(BridgeMessage::Voice& message) const {
        model.launch("voice", model.voiceFromPage(std::move(message.action)));
    }
    void operator()(BridgeMessage::OnboardingDone&) const { model.onboardingFinished(); }
    void operator()(BridgeMessage::Mode& message) const {
        model.setInterfaceMode(message.mode, InterfaceModeSource::page);
    }
    void operator()(BridgeMessage::ChooseFolder&) const { model.openOnboarding(false); }
    void operator()(BridgeMessage::RunSkill& message) const {
        copyCommand(
            std::move(message.command), "Command copied. Paste it in Terminal to run the skill.", model);
    }
    void operator()(BridgeMessage::Other& message) const {
        if (message.type != "action" || !message.action)
            return;
        const auto found = otherActions.find(*message.action);
        if (found != otherActions.end())
            found->second(body, model);
    }
    void operator()(BridgeMessage::Ready&) const {}      // the web controller's
    void operator()(BridgeMessage::Onboarding&) const {} // the setup window's
};

} // namespace

void handle(const std::string& type, const JSONObject& body, AppModel& model) {
    auto message = BridgeMessage::parse(type, body);
    std::visit(Dispatch{body, model}, message);
}

std::optional<std::string> findPath(const JSONObject& object) {
    for (const auto* key : {"folder", "folder_path", "continuity_path"}) {
        auto path = text(object, key);
        if (!path || !path->starts_with('/'))
            continue;
        if (key != std::string_view("continuity_path"))
            return path;
        while (path->size() > 1 && path->ends_with('/'))
            path->pop_back();
        return Files::parent(*path); // it names a file
    }
    const auto topic = object.find("topic");
    return topic && topic->isObject() ? findPath(topic->object()) : std::nullopt;
}

} // namespace kelvadrome::NativeActions
