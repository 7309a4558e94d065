#include "Kelvadrome/gtk/window/Sidebar.h"

#include "Kelvadrome/gtk/parts/AccessibleName.h"
#include "Kelvadrome/gtk/parts/Focus.h"
#include "Kelvadrome/gtk/parts/Words.h"
#include "Kelvadrome/model/AgentLines.h"
#include "KelvadromeKit/attention/InboxLogic.h"

#include <algorithm>
#include <tuple>

namespace kelvadrome {

namespace {

std::string count(std::int64_t number) {
    return number > 0 ? std::to_string(number) : std::string();
}

std::string sectionCount(NavSection section, const AppState& state) {
    switch (section) {
    case NavSection::inbox:
        return count(needsYouCount(state));
    case NavSection::topics:
        return count(state.topicCount);
    case NavSection::receipts:
        return count(state.receiptsToday);
    case NavSection::agents:
        return count(static_cast<std::int64_t>(agentRows(state).size()));
    default:
        return {};
    }
}

Gtk::Label* label(const std::string& text, const char* style) {
    return wordsLabel(text, style, Wrapping::elides);
}

Gtk::Widget* content(
    const std::string& title, const std::string& detail, const std::string& count, const std::string& lamp) {
    auto* const box = Gtk::make_managed<Gtk::Box>(Gtk::Orientation::HORIZONTAL, 8);
    if (!lamp.empty()) {
        auto* const dot = Gtk::make_managed<Gtk::Box>();
        dot->add_css_class("lamp");
        dot->add_css_class(lamp);
        dot->set_valign(Gtk::Align::CENTER);
        box->append(*dot);
    }
    auto* const texts = Gtk::make_managed<Gtk::Box>(Gtk::Orientation::VERTICAL);
    texts->set_hexpand(true);
    texts->set_valign(Gtk::Align::CENTER);
    texts->append(*label(title, ""));
    if (!detail.empty())
        texts->append(*label(detail, "sidebar-detail"));
    box->append(*texts);
    if (!count.empty()) {
        auto* const number = label(count, "count");
        number->set_valign(Gtk::Align::CENTER);
        box->append(*number);
    }
    return box;
}

} // namespace

Sidebar::Sidebar(std::shared_ptr<AppModel> model) : model_(std::move(model)) {
    set_policy(Gtk::PolicyType::NEVER, Gtk::PolicyType::AUTOMATIC);
    set_size_request(220, -1);
    list_.add_css_class("navigation-sidebar");
    setAccessibleName(list_, "Sections and agents");
    list_.set_selection_mode(Gtk::SelectionMode::SINGLE);
    list_.signal_row_activated().connect([this](Gtk::ListBoxRow* row) { activate(row->get_index()); });
    // The arrow keys move the focus alone: what is selected is what the page shows.
    list_.signal_row_selected().connect([this](Gtk::ListBoxRow* row) {
        if (row)
            select(model_->state());
    });
    list_.set_header_func([this](Gtk::ListBoxRow* row, Gtk::ListBoxRow*) {
        const auto& shown = shown_.at(static_cast<std::size_t>(row->get_index()));
        if (shown.group.empty()) {
            row->unset_header();
        } else {
            row->set_header(*label(shown.group, "sidebar-heading"));
        }
    });
    set_child(list_);
}

Sidebar::~Sidebar() {
    list_.unset_header_func(); // the window takes its rows away one by one, when there is nothing left to ask
}

std::vector<Sidebar::Row> Sidebar::rows(const AppState& state) {
    std::vector<Row> rows;
    for (const auto section : allNavSections) {
        rows.push_back(
            {SidebarItem::Section{section}, title(section), {}, sectionCount(section, state), {}, {}});
    }
    bool first = true;
    for (const auto& session : agentRows(state)) {
        const auto line = agentLine(state, session);
        auto detail = line.place + (line.place.empty() || line.words.empty() ? "" : " · ") + line.words;
        rows.push_back({SidebarItem::of(session), line.name, std::move(detail), count(line.waiting),
            std::string(rawValue(line.lamp)), std::exchange(first, false) ? "Agents" : "", sentenceOf(line)});
    }
    first = true;
    for (const auto& pilot :
        state.agents ? state.agents->autopilot : std::vector<AgentsStatus::Autopilot>()) {
        rows.push_back(
            {SidebarItem::of(pilot), pilot.label.value_or(InboxLogic::actionLabel(pilot.actionClass)),
                std::string(rawValue(InboxLogic::annunciator(pilot.level))), {}, {},
                std::exchange(first, false) ? "Autopilot" : ""});
    }
    return rows;
}

void Sidebar::show(const AppState& state) {
    auto fresh = rows(state);
    if (fresh != shown_) {
        const bool sameItems = std::ranges::equal(
            fresh, shown_, {}, [](const Row& row) { return std::tie(row.item, row.group); },
            [](const Row& row) { return std::tie(row.item, row.group); });
        const auto before = std::exchange(shown_, std::move(fresh));
        if (sameItems) {
            for (std::size_t i = 0; i < shown_.size(); ++i) {
                if (shown_[i] != before[i])
                    fill(i);
            }
        } else {
            rebuild();
        }
    }
    select(state);
}

/// The row that had the focus has it again.
void Sidebar::rebuild() {
    std::optional<SidebarItem::Value> focused;
    for (std::size_t i = 0; auto* const row = list_.get_row_at_index(static_cast<int>(i)); ++i) {
        if (holdsFocus(*row))
            focused = items_[i];
    }
    while (auto* const row = list_.get_row_at_index(0))
        list_.remove(*row);
    items_.clear();
    for (std::size_t i = 0; i < shown_.size(); ++i) {
        list_.append(*Gtk::make_managed<Gtk::ListBoxRow>());
        items_.push_back(shown_[i].item);
        fill(i);
    }
    list_.invalidate_headers();
    if (!focused)
        return;
    const auto again = std::ranges::find(items_, *focused);
    list_.get_row_at_index(again == items_.end() ? 0 : static_cast<int>(again - items_.begin()))
        ->grab_focus();
}

void Sidebar::fill(std::size_t index) {
    const auto& shown = shown_[index];
    auto* const row = list_.get_row_at_index(static_cast<int>(index));
    row->set_child(*content(shown.title, shown.detail, shown.count, shown.lamp));
    std::string name = shown.sentence.empty() ? shown.title : shown.sentence;
    for (const auto& more : {shown.count, shown.sentence.empty() ? shown.detail : std::string()})
        name += more.empty() ? "" : ", " + more;
    setAccessibleName(*row, name);
    row->set_tooltip_text(shown.sentence);
}

/// What the user selected stays so while its section shows and it is there; otherwise the section's own row.
void Sidebar::select(const AppState& state) {
    // The cards of an agent are in the inbox.
    const bool agentsCards =
        std::holds_alternative<SidebarItem::Agent>(selected_) && state.section == NavSection::inbox;
    if ((SidebarItem::section(selected_) != state.section && !agentsCards) ||
        std::ranges::find(shown_, selected_, &Row::item) == shown_.end())
        selected_ = SidebarItem::Section{state.section};
    const auto found = std::ranges::find(shown_, selected_, &Row::item);
    auto* const row =
        found == shown_.end() ? nullptr : list_.get_row_at_index(static_cast<int>(found - shown_.begin()));
    if (row && list_.get_selected_row() != row)
        list_.select_row(*row);
}

void Sidebar::activate(int index) {
    if (index < 0 || static_cast<std::size_t>(index) >= shown_.size())
        return;
    selected_ = shown_[static_cast<std::size_t>(index)].item;
    if (const auto* const agent = std::get_if<SidebarItem::Agent>(&selected_)) {
        model_->openAgent(agent->id);
    } else {
        model_->open(SidebarItem::section(selected_), std::nullopt);
    }
    if (onSelected)
        onSelected();
}

} // namespace kelvadrome
