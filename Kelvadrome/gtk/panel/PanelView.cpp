#include "Kelvadrome/gtk/panel/PanelView.h"

#include "Kelvadrome/gtk/parts/AccessibleName.h"
#include "Kelvadrome/gtk/parts/CardActions.h"
#include "Kelvadrome/gtk/parts/WordmarkView.h"
#include "Kelvadrome/gtk/parts/Words.h"

#include <algorithm>
#include <gtkmm/image.h>
#include <gtkmm/separator.h>

namespace kelvadrome {

namespace {

constexpr std::size_t agentsShown = 6;
constexpr double wordmarkSize = 20;

void clear(Gtk::Box& box) {
    while (auto* const child = box.get_first_child())
        box.remove(*child);
}

void asWords(Gtk::Label& label, const char* style) {
    wrap(label);
    label.add_css_class(style);
}

} // namespace

PanelView::PanelView(std::shared_ptr<AppModel> model, std::shared_ptr<Clock> clock, Effects effects)
    : Gtk::Box(Gtk::Orientation::VERTICAL, 12), model_(std::move(model)), clock_(std::move(clock)),
      effects_(std::move(effects)), cards_(makeCardDesk(model_,
                                               [this](const Card& card) {
                                                   model_->openMainWindow();
                                                   model_->review(card);
                                                   effects_.done();
                                               }),
                                        CardView::Form::folded) {
    add_css_class("panel");
    message_.add_css_class("empty");
    makeHeader();
    for (auto* const section :
        {&lines_, &message_, static_cast<Gtk::Box*>(&cards_), &pressed_, &agents_, &error_})
        append(*section);
    makeFooter();
}

void PanelView::makeHeader() {
    auto* const row = Gtk::make_managed<Gtk::Box>(Gtk::Orientation::HORIZONTAL, 12);
    auto* const words = Gtk::make_managed<Gtk::Box>(Gtk::Orientation::VERTICAL);
    words->set_hexpand(true);
    auto* const brand = Gtk::make_managed<WordmarkView>(wordmarkSize);
    brand->set_halign(Gtk::Align::START);
    brand->set_margin_bottom(6);
    asWords(header_, "title-3");
    asWords(relief_, "dim-label");
    words->append(*brand);
    words->append(header_);
    words->append(relief_);
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
    row->append(*settings);
    append(*row);
}

void PanelView::makeFooter() {
    auto* const mark = Gtk::make_managed<Gtk::Image>();
    mark->set_from_icon_name("dialog-warning-symbolic");
    error_.append(*mark);
    asWords(errorWords_, "error");
    error_.append(errorWords_);

    append(*Gtk::make_managed<Gtk::Separator>());
    auto* const row = Gtk::make_managed<Gtk::Box>(Gtk::Orientation::HORIZONTAL, 12);
    open_.set_hexpand(true);
    open_.set_halign(Gtk::Align::START);
    open_.signal_clicked().connect([this] { perform(shownContent_->open); });
    row->append(open_);
    more_.add_css_class("dim-label");
    row->append(more_);
    append(*row);
    asWords(snoozed_, "dim-label");
    append(snoozed_);
}

void PanelView::setShown(bool shown) {
    shown_ = shown;
    waking_.in(std::nullopt, {});
    if (shown)
        show();
}

void PanelView::show() {
    if (!shown_)
        return;
    const auto now = clock_->now();
    auto content = menuPanel(model_->state(), now);
    waking_.in(menuPanelChangesIn(content, model_->state(), now), [this] { show(); });
    if (shownContent_ == content)
        return;
    draw(content);
    shownContent_ = std::move(content);
}

void PanelView::draw(const MenuPanelContent& content) {
    const bool first = !shownContent_;
    const auto& before = first ? content : *shownContent_;
    header_.set_text(content.header);
    relief_.set_text(content.relief);
    if (first || before.setup != content.setup || before.background != content.background)
        drawLines(content);
    if (first || before.body != content.body || before.title != content.title ||
        before.detail != content.detail)
        drawMessage(content);
    cards_.show(content.rows);
    cards_.set_visible(!content.rows.empty());
    if (first || before.pressed != content.pressed)
        drawPressed(content.pressed);
    if (first || before.agents != content.agents)
        drawAgents(content.agents);
    errorWords_.set_text(content.error.value_or(""));
    error_.set_visible(content.error.has_value());
    open_.set_label(content.open.words);
    more_.set_text(content.more.value_or(""));
    more_.set_visible(content.more.has_value());
    snoozed_.set_text(content.snoozed.value_or(""));
    snoozed_.set_visible(content.snoozed.has_value());
}

void PanelView::drawLines(const MenuPanelContent& content) {
    clear(lines_);
    if (content.setup)
        addLine(*content.setup);
    if (content.background)
        addLine(*content.background);
    lines_.set_visible(content.setup || content.background);
}

void PanelView::addLine(const PanelLine& line) {
    auto* const words = Gtk::make_managed<Gtk::Box>(Gtk::Orientation::VERTICAL);
    words->append(*wordsLabel(line.title, "heading"));
    if (!line.detail.empty())
        words->append(*wordsLabel(line.detail, "dim-label"));
    auto* const button = Gtk::make_managed<Gtk::Button>();
    button->set_child(*words);
    button->add_css_class("line");
    setAccessibleName(*button, line.detail.empty() ? line.title : line.title + ". " + line.detail);
    button->signal_clicked().connect([this, action = line.action] { perform(action); });
    lines_.append(*button);
}

void PanelView::drawMessage(const MenuPanelContent& content) {
    clear(message_);
    message_.set_visible(content.body != MenuPanelContent::Body::rows);
    message_.append(*wordsLabel(content.title, "heading"));
    if (!content.detail.empty())
        message_.append(*wordsLabel(content.detail, "dim-label"));
    if (!content.retry)
        return;
    auto* const again = Gtk::make_managed<Gtk::Button>(content.retry->words);
    again->signal_clicked().connect([this, action = *content.retry] { perform(action); });
    message_.append(*again);
}

void PanelView::drawPressed(const std::vector<std::string>& lines) {
    clear(pressed_);
    pressed_.set_visible(!lines.empty());
    for (const auto& line : lines)
        pressed_.append(*wordsLabel(line, "warning"));
}

void PanelView::drawAgents(const std::vector<AgentLine>& agents) {
    clear(agents_);
    agents_.set_visible(!agents.empty());
    agents_.append(*Gtk::make_managed<Gtk::Separator>());
    for (std::size_t i = 0; i < std::min(agents.size(), agentsShown); ++i) {
        const auto& agent = agents[i];
        auto* const row = Gtk::make_managed<Gtk::Box>(Gtk::Orientation::HORIZONTAL, 8);
        auto* const lamp = Gtk::make_managed<Gtk::Box>();
        lamp->add_css_class("lamp");
        lamp->add_css_class(std::string(rawValue(agent.lamp)));
        lamp->set_valign(Gtk::Align::CENTER);
        row->append(*lamp);
        auto* const name =
            wordsLabel(agent.name + (agent.place.empty() ? "" : " · " + agent.place), "", Wrapping::elides);
        name->set_max_width_chars(26);
        row->append(*name);
        auto* const words = wordsLabel(agent.words, "dim-label", Wrapping::elides);
        words->set_hexpand(true);
        words->set_xalign(1);
        words->set_max_width_chars(16);
        row->append(*words);
        auto* const press = Gtk::make_managed<Gtk::Button>();
        press->set_child(*row);
        press->add_css_class("flat");
        press->set_tooltip_text(sentenceOf(agent));
        setAccessibleName(*press, sentenceOf(agent));
        press->signal_clicked().connect([this, id = agent.id] {
            effects_.done();
            model_->openAgent(id);
        });
        agents_.append(*press);
    }
    if (agents.size() > agentsShown) {
        const auto more = std::to_string(agents.size() - agentsShown);
        agents_.append(*wordsLabel("+" + more + " in the sidebar of the window", "dim-label"));
    }
}

void PanelView::perform(const PanelAction& action) {
    switch (action.kind) {
    case PanelAction::Kind::finishSetup:
        model_->openOnboarding(false);
        return effects_.done();
    case PanelAction::Kind::openLoginItems:
        return effects_.openLoginItems();
    case PanelAction::Kind::retry:
        return model_->retry();
    case PanelAction::Kind::openMain:
        model_->openMain("/");
        return effects_.done();
    default:
        return; // those of cards
    }
}

} // namespace kelvadrome
