#pragma once

#include "Kelvadrome/gtk/parts/Waking.h"
#include "Kelvadrome/gtk/window/CardList.h"
#include "Kelvadrome/model/AppModel.h"
#include "Kelvadrome/model/MenuPanel.h"

#include <functional>
#include <gtkmm/box.h>
#include <gtkmm/button.h>
#include <gtkmm/label.h>
#include <memory>
#include <optional>

namespace kelvadrome {

/// The panel's content as widgets: header, cards and rows under way, agents, footer. Draws what
/// MenuPanelContent says, and wakes by itself when time alone changes it. Only what has changed is drawn
/// anew, so that the focus and what the user is typing survive.
class PanelView final : public Gtk::Box {
public:
    struct Effects {
        std::function<void()> openLoginItems;
        std::function<void()> openSettings;
        std::function<void()> done; // the panel has served its purpose: the main window was asked for
    };

    PanelView(std::shared_ptr<AppModel> model, std::shared_ptr<Clock> clock, Effects effects);

    /// Shows the model's state as of now.
    void show();
    /// A hidden panel draws nothing and sleeps.
    void setShown(bool shown);
    /// Gives the focus to the first card, when there is one.
    bool focusFirst() { return cards_.focusFirst(); }

private:
    void makeHeader();
    void makeFooter();
    void draw(const MenuPanelContent& content);
    void drawLines(const MenuPanelContent& content);
    void drawMessage(const MenuPanelContent& content);
    void drawPressed(const std::vector<std::string>& lines);
    void drawAgents(const std::vector<AgentLine>& agents);
    void addLine(const PanelLine& line);
    void perform(const PanelAction& action);

    std::shared_ptr<AppModel> model_;
    std::shared_ptr<Clock> clock_;
    Effects effects_;
    std::optional<MenuPanelContent> shownContent_;
    Waking waking_;
    bool shown_ = false;

    Gtk::Label header_;
    Gtk::Label relief_;
    Gtk::Box lines_{Gtk::Orientation::VERTICAL, 6};
    Gtk::Box message_{Gtk::Orientation::VERTICAL, 6};
    CardList cards_;
    Gtk::Box pressed_{Gtk::Orientation::VERTICAL, 6};
    Gtk::Box agents_{Gtk::Orientation::VERTICAL, 6};
    Gtk::Box error_{Gtk::Orientation::HORIZONTAL, 6};
    Gtk::Label errorWords_;
    Gtk::Button open_;
    Gtk::Label more_;
    Gtk::Label snoozed_;
};

} // namespace kelvadrome
