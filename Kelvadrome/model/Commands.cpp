#include "Kelvadrome/model/Commands.h"

namespace kelvadrome {

std::vector<KelvadromeCommand> kelvadromeCommands() {
    std::vector<KelvadromeCommand> commands{
        {"open", "Open kelvadrome", "<Control>o",
            [](AppModel& model) {
                model.openMainWindow();
                model.screen().activate();
            }},
        {"bar", "Ask kelvadrome", "<Control>k",
            [](AppModel& model) { model.screen().openCommandBar(std::nullopt); }},
        {"expert", "Expert Mode", "<Control><Shift>e",
            [](AppModel& model) {
                model.setInterfaceMode(toggled(model.state().interfaceMode), InterfaceModeSource::menu);
            },
            [](const AppState& state) { return state.interfaceMode == InterfaceMode::expert; }},
        {"strip", "Agent Strip", "",
            [](AppModel& model) { model.setAgentStrip(!model.state().agentStripShown); },
            [](const AppState& state) { return state.agentStripShown; }, true},
        {"reload", "Reload Page", "<Control>r", [](AppModel& model) { model.web().reload(); }},
    };
    for (std::size_t i = 0; i < allNavSections.size(); ++i) {
        const auto section = allNavSections[i];
        commands.push_back(
            {"section-" + std::string(rawValue(section)), title(section), "<Control>" + std::to_string(i + 1),
                [section](AppModel& model) { model.open(section, std::nullopt); }});
    }
    return commands;
}

} // namespace kelvadrome
