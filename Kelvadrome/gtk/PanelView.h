#pragma once

#include "Kelvadrome/model/AppModel.h"
#include "Kelvadrome/model/MenuPanel.h"

#include <functional>
#include <gtkmm/box.h>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <string>

namespace kelvadrome {

/// The panel's content as widgets: header, cards and rows under way, agents, footer. Draws what
/// MenuPanelContent says, and wakes by itself when time alone changes it. What the user is typing survives a
/// change.
class PanelView final : public Gtk::Box {
public:
    struct Effects {
        std::function<void()> openLoginItems;
        std::function<void()> openSettings;
        std::function<void()> done; // the panel has served its purpose: the main window was asked for
    };

    PanelView(std::shared_ptr<AppModel> model, std::shared_ptr<Clock> clock, Effects effects);
    ~PanelView() override;

    /// Shows the model's state as of now.
    void show();
    /// A hidden panel draws nothing and sleeps.
    void setShown(bool shown);

private:
    void rebuild(const MenuPanelContent& content);
    void addHeader(const MenuPanelContent& content);
    void addLine(const PanelLine& line);
    void addBody(const MenuPanelContent& content);
    void addAgents(const std::vector<AgentLine>& agents);
    void addFooter(const MenuPanelContent& content);
    Gtk::Widget* card(const PanelCard& card);
    Gtk::Widget* cardDetails(const PanelCard& card);
    Gtk::Widget* hold(const HoldRow& hold);
    Gtk::Widget* button(const PanelAction& action, const std::string& key, std::optional<Card> card = {});
    void perform(const PanelAction& action, const std::optional<Card>& card);
    void keepFocus();
    void restoreFocus();
    void wakeIn(std::optional<double> seconds);

    std::shared_ptr<AppModel> model_;
    std::shared_ptr<Clock> clock_;
    Effects effects_;
    std::optional<MenuPanelContent> shownContent_;
    std::map<std::string, Gtk::Widget*> focusable_; // by a key that a rebuild keeps
    std::string focused_;
    std::map<std::string, std::string> typed_; // by card id
    std::set<std::string> opened_;             // cards whose details show
    sigc::connection waking_;
    bool shown_ = false;
};

} // namespace kelvadrome
