#pragma once

#include "Kelvadrome/model/AppModel.h"

#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <utility>

namespace kelvadrome {

/// What an application does at its beginning and end beside the model. Main executor.
class AppLifecycle {
public:
    /// A question with two answers; true for the first.
    struct QuitQuestion {
        std::string text;
        std::string detail;
        std::string quit;
        std::string keepRunning;
    };
    using Ask = std::function<Task<bool>(QuitQuestion)>;

    AppLifecycle(std::shared_ptr<AppModel> model, DaemonClient client, Ask ask)
        : model_(std::move(model)), client_(std::move(client)), ask_(std::move(ask)) {}

    /// False when an install is under way and the user would rather have that finish.
    Task<bool> mayTerminate();
    /// Ends the model when that may be: true when the process may go. Passes at once when that has been so
    /// before.
    Task<bool> shouldTerminate();

    /// Whether the application has its place in the dock or launcher: only a stored `false` takes it away.
    static bool showsInDock(const Defaults& defaults);
    /// "1200x800" as width and height, both at least 1; absent for anything else.
    static std::optional<std::pair<int, int>> windowSize(std::string_view text);

private:
    Task<std::optional<std::string>> quitPrompt() const;

    std::shared_ptr<AppModel> model_;
    DaemonClient client_;
    Ask ask_;
    bool stopped_ = false;
};

} // namespace kelvadrome
