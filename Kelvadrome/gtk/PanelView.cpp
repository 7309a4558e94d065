#include "Kelvadrome/gtk/PanelView.h"

#include "Kelvadrome/gtk/AccessibleName.h"

#include <glibmm/main.h>

#include <algorithm>
#include <cmath>
#include <gtkmm/button.h>
#include <gtkmm/entry.h>
#include <gtkmm/expander.h>
#include <gtkmm/flowbox.h>
#include <gtkmm/image.h>
#include <gtkmm/label.h>
#include <gtkmm/progressbar.h>
#include <gtkmm/root.h>
#include <gtkmm/separator.h>

namespace kelvadrome {

namespace {

constexpr std::size_t agentsShown = 6;

Gtk::Label* text(const std::string& words, const char* style, bool wraps = true) {
    auto* const label = Gtk::make_managed<Gtk::Label>(words);
    label->set_xalign(0);
    label->set_wrap(wraps);
    label->set_wrap_mode(Pango::WrapMode::WORD_CHAR);
    if (!wraps)
        label->set_ellipsize(Pango::EllipsizeMode::END);
    if (*style)
        label->add_css_class(style);
    return label;
}

Gtk::Box* box(Gtk::Orientation orientation, int spacing) {
    return Gtk::make_managed<Gtk::Box>(orientation, spacing);
}

/// Who asks, about what, and since when.
std::string origin(
    const std::string& agent, const std::optional<std::string>& topic, const std::string& age) {
    std::string words = agent;
    for (const auto& more : {topic.value_or(""), age})
        words += more.empty() ? "" : " · " + more;
    return words;
}

} // namespace

PanelView::PanelView(std::shared_ptr<AppModel> model, std::shared_ptr<Clock> clock, Effects effects)
    : Gtk::Box(Gtk::Orientation::VERTICAL, 12), model_(std::move(model)), clock_(std::move(clock)),
      effects_(std::move(effects)) {
    add_css_class("panel");
}

PanelView::~PanelView() {
    waking_.disconnect();
}

void PanelView::setShown(bool shown) {
    shown_ = shown;
    waking_.disconnect();
    if (shown)
        show();
}

void PanelView::show() {
    if (!shown_)
        return;
    const auto now = clock_->now();
    auto content = menuPanel(model_->state(), now);
    wakeIn(menuPanelChangesIn(content, model_->state(), now));
    if (shownContent_ == content)
        return;
    keepFocus();
    rebuild(content);
    shownContent_ = std::move(content);
    restoreFocus();
}

void PanelView::wakeIn(std::optional<double> seconds) {
    waking_.disconnect();
    if (seconds) {
        waking_ = Glib::signal_timeout().connect(
            [this] {
                show();
                return false;
            },
            static_cast<unsigned>(std::ceil(std::max(*seconds, 0.0) * 1000)));
    }
}

void PanelView::rebuild(const MenuPanelContent& content) {
    focusable_.clear();
    while (auto* const child = get_first_child())
        remove(*child);
    addHeader(content);
    if (content.setup)
        addLine(*content.setup);
    if (content.background)
        addLine(*content.background);
    addBody(content);
    addAgents(content.agents);
    if (content.error) {
        auto* const row = box(Gtk::Orientation::HORIZONTAL, 6);
        row->append(*Gtk::make_managed<Gtk::Image>());
        static_cast<Gtk::Image*>(row->get_first_child())->set_from_icon_name("dialog-warning-symbolic");
        row->append(*text(*content.error, "error"));
        append(*row);
    }
    addFooter(content);
}

void PanelView::addHeader(const MenuPanelContent& content) {
    auto* const row = box(Gtk::Orientation::HORIZONTAL, 12);
    auto* const words = box(Gtk::Orientation::VERTICAL, 2);
    words->set_hexpand(true);
    words->append(*text(content.header, "title-3"));
    words->append(*text(content.relief, "dim-label"));
    row->append(*words);
    auto* const settings = Gtk::make_managed<Gtk::Button>();
    settings->set_icon_name("emblem-system-symbolic");
    settings->add_css_class("flat");
    settings->set_valign(Gtk::Align::START);
    settings->set_tooltip_text("Settings");
    setAccessibleName(*settings, "Settings");
    settings->signal_clicked().connect([this] {
        effects_.done();
        effects_.openSettings();
    });
    focusable_["settings"] = settings;
    row->append(*settings);
    append(*row);
}

void PanelView::addLine(const PanelLine& line) {
    auto* const words = box(Gtk::Orientation::VERTICAL, 2);
    words->append(*text(line.title, "heading"));
    if (!line.detail.empty())
        words->append(*text(line.detail, "dim-label"));
    auto* const button = Gtk::make_managed<Gtk::Button>();
    button->set_child(*words);
    button->add_css_class("line");
    button->signal_clicked().connect([this, action = line.action] { perform(action, std::nullopt); });
    focusable_["line-" + line.title] = button;
    append(*button);
}

void PanelView::addBody(const MenuPanelContent& content) {
    if (content.body != MenuPanelContent::Body::rows) {
        auto* const words = box(Gtk::Orientation::VERTICAL, 4);
        words->add_css_class("empty");
        words->append(*text(content.title, "heading"));
        if (!content.detail.empty())
            words->append(*text(content.detail, "dim-label"));
        if (content.retry)
            words->append(*button(*content.retry, "retry"));
        append(*words);
        return;
    }
    for (const auto& row : content.rows) {
        if (const auto* const held = std::get_if<HoldRow>(&row)) {
            append(*hold(*held));
        } else {
            append(*card(std::get<PanelCard>(row)));
        }
    }
}

Gtk::Widget* PanelView::card(const PanelCard& card) {
    auto* const made = box(Gtk::Orientation::VERTICAL, 8);
    made->add_css_class("card");
    if (card.highRisk)
        made->add_css_class("high-risk");
    made->append(*text(origin(card.agent, card.topic, card.age), "caption"));
    made->append(*text(card.summary, "summary"));
    if (!card.highRisk)
        made->append(*cardDetails(card));
    auto* const buttons = Gtk::make_managed<Gtk::FlowBox>();
    buttons->set_selection_mode(Gtk::SelectionMode::NONE);
    buttons->set_column_spacing(6);
    buttons->set_row_spacing(6);
    buttons->set_max_children_per_line(3);
    std::string note;
    for (const auto& action : card.actions) {
        auto* const press = button(action, card.card.id + "/" + action.words, card.card);
        if (&action == &card.actions.front() && action.kind != PanelAction::Kind::snooze)
            press->add_css_class("suggested-action");
        buttons->append(*press);
        press->get_parent()->set_focusable(false); // the button is what takes the focus
        if (note.empty())
            note = action.note;
    }
    made->append(*buttons);
    if (!note.empty())
        made->append(*text(note, "caption"));
    return made;
}

/// The whole question, its options and a free answer.
Gtk::Widget* PanelView::cardDetails(const PanelCard& card) {
    const auto id = card.card.id;
    auto* const details = box(Gtk::Orientation::VERTICAL, 8);
    if (!card.card.body.empty()) {
        auto* const body = text(card.card.body, "body");
        body->set_selectable(true);
        body->set_focusable(false);
        details->append(*body);
    }
    for (const auto& row : card.card.rows.value_or(std::vector<BatchRow>())) {
        details->append(*text(row.text + (row.defaultAnswer ? " — " + *row.defaultAnswer : ""), "body"));
    }
    for (const auto& option : card.card.options) {
        details->append(*button({.kind = PanelAction::Kind::answer, .words = option, .answer = option},
            id + "/option/" + option, card.card));
    }
    auto* const answer = Gtk::make_managed<Gtk::Entry>();
    answer->set_placeholder_text("Type an answer");
    answer->set_text(typed_[id]);
    setAccessibleName(*answer, "Answer to: " + card.summary);
    answer->signal_changed().connect([this, answer, id] { typed_[id] = answer->get_text(); });
    answer->signal_activate().connect([this, answer, id, asked = card.card] {
        const std::string words = answer->get_text();
        if (words.find_first_not_of(" \t") == std::string::npos)
            return;
        typed_.erase(id);
        model_->answer(asked, words);
    });
    focusable_[id + "/entry"] = answer;
    details->append(*answer);

    auto* const expander = Gtk::make_managed<Gtk::Expander>("Read and answer");
    expander->set_child(*details);
    expander->set_expanded(opened_.contains(id));
    expander->property_expanded().signal_changed().connect([this, expander, id] {
        if (expander->get_expanded()) {
            opened_.insert(id);
        } else {
            opened_.erase(id);
        }
    });
    focusable_[id + "/details"] = expander;
    return expander;
}

Gtk::Widget* PanelView::hold(const HoldRow& held) {
    auto* const made = box(Gtk::Orientation::VERTICAL, 6);
    made->add_css_class("card");
    made->append(*text(origin(held.agent, held.topic, ""), "caption"));
    auto* const row = box(Gtk::Orientation::HORIZONTAL, 8);
    if (held.committed) {
        auto* const mark = Gtk::make_managed<Gtk::Image>();
        mark->set_from_icon_name("object-select-symbolic");
        row->append(*mark);
    }
    auto* const words = text(held.committed ? held.words : held.label, "summary");
    words->set_hexpand(true);
    row->append(*words);
    if (held.undo)
        row->append(*button(*held.undo, held.card.id + "/undo", held.card));
    made->append(*row);
    if (!held.committed) {
        auto* const left = Gtk::make_managed<Gtk::ProgressBar>();
        left->set_fraction(held.duration > 0 ? std::clamp(held.left / held.duration, 0.0, 1.0) : 0);
        setAccessibleName(*left, "Time to undo");
        made->append(*left);
        made->append(*text(held.words, "caption"));
    }
    return made;
}

void PanelView::addAgents(const std::vector<AgentLine>& agents) {
    if (agents.empty())
        return;
    append(*Gtk::make_managed<Gtk::Separator>());
    auto* const list = box(Gtk::Orientation::VERTICAL, 6);
    for (std::size_t i = 0; i < std::min(agents.size(), agentsShown); ++i) {
        const auto& agent = agents[i];
        auto* const row = box(Gtk::Orientation::HORIZONTAL, 8);
        auto* const lamp = box(Gtk::Orientation::HORIZONTAL, 0);
        lamp->add_css_class("lamp");
        lamp->add_css_class(std::string(rawValue(agent.lamp)));
        lamp->set_valign(Gtk::Align::CENTER);
        row->append(*lamp);
        row->append(*text(agent.name, "", false));
        auto* const words = text(agent.words, "dim-label", false);
        words->set_hexpand(true);
        words->set_xalign(1);
        row->append(*words);
        list->append(*row);
    }
    append(*list);
}

void PanelView::addFooter(const MenuPanelContent& content) {
    append(*Gtk::make_managed<Gtk::Separator>());
    auto* const row = box(Gtk::Orientation::HORIZONTAL, 12);
    auto* const open = button(content.open, "open");
    open->set_hexpand(true);
    open->set_halign(Gtk::Align::START);
    row->append(*open);
    if (content.more)
        row->append(*text(*content.more, "dim-label"));
    append(*row);
}

Gtk::Widget* PanelView::button(const PanelAction& action, const std::string& key, std::optional<Card> card) {
    auto* const label = text(action.words, "", false);
    label->set_xalign(0.5);
    auto* const made = Gtk::make_managed<Gtk::Button>();
    made->set_child(*label);
    made->set_tooltip_text(action.words);
    setAccessibleName(*made, action.note.empty() ? action.words : action.words + ". " + action.note);
    made->signal_clicked().connect([this, action, card = std::move(card)] { perform(action, card); });
    focusable_[key] = made;
    return made;
}

void PanelView::perform(const PanelAction& action, const std::optional<Card>& card) {
    switch (action.kind) {
    case PanelAction::Kind::finishSetup:
        model_->openOnboarding(false);
        return effects_.done();
    case PanelAction::Kind::openLoginItems:
        return effects_.openLoginItems();
    case PanelAction::Kind::retry:
        return model_->retry();
    case PanelAction::Kind::review:
        model_->openMainWindow();
        model_->open(NavSection::inbox, card);
        return effects_.done();
    case PanelAction::Kind::bringEdgeToFront:
        return model_->screen().activateApplication(edgeBundleId);
    case PanelAction::Kind::answer:
        return model_->answer(*card, action.answer);
    case PanelAction::Kind::acceptDefaults:
        return model_->acceptDefaults(*card);
    case PanelAction::Kind::snooze:
        return model_->snooze(*card);
    case PanelAction::Kind::undo:
        return model_->undo(*card);
    case PanelAction::Kind::openMain:
        model_->openMain("/");
        return effects_.done();
    }
}

void PanelView::keepFocus() {
    focused_.clear();
    const auto* const root = get_root();
    for (const Gtk::Widget* widget = root ? root->get_focus() : nullptr; widget;
         widget = widget->get_parent()) {
        const auto found =
            std::ranges::find(focusable_, widget, &std::pair<const std::string, Gtk::Widget*>::second);
        if (found == focusable_.end())
            continue;
        focused_ = found->first;
        return;
    }
}

void PanelView::restoreFocus() {
    const auto found = focusable_.find(focused_);
    if (found == focusable_.end())
        return;
    found->second->grab_focus();
    if (auto* const entry = dynamic_cast<Gtk::Entry*>(found->second))
        entry->set_position(
            -1); // selecting all, as taking the focus does, would have the next key replace it
}

} // namespace kelvadrome
