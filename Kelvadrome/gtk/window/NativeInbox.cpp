#include "Kelvadrome/gtk/window/NativeInbox.h"

#include "Kelvadrome/gtk/parts/AccessibleName.h"
#include "Kelvadrome/gtk/parts/CardActions.h"
#include "Kelvadrome/gtk/parts/Words.h"

#include <fmt/format.h>

#include <adwaita.h>

namespace kelvadrome {

namespace {

constexpr int widest = 680;

void asWords(Gtk::Label& label, const char* style) {
    wrap(label);
    label.add_css_class(style);
}

} // namespace

NativeInbox::NativeInbox(std::shared_ptr<AppModel> model, std::shared_ptr<Clock> clock,
    std::function<void(const Card& card)> review, std::function<void()> tryAgain)
    : Gtk::Box(Gtk::Orientation::VERTICAL), model_(std::move(model)), clock_(std::move(clock)),
      cards_(makeCardDesk(model_, std::move(review)), CardView::Form::open) {
    scroller_.set_policy(Gtk::PolicyType::NEVER, Gtk::PolicyType::AUTOMATIC);
    scroller_.set_vexpand(true);
    add_css_class("inbox");
    setAccessibleName(scroller_, "Inbox"); // which takes the focus while there is no card
    makeTrouble(std::move(tryAgain));
    asWords(header_, "title-2");
    g_object_set(header_.gobj(), "accessible-role", GTK_ACCESSIBLE_ROLE_HEADING, nullptr);
    asWords(relief_, "dim-label");
    asWords(error_, "error");
    asWords(pressed_, "warning");
    makeElsewhere();
    clear_.set_text("New questions land here first.");
    asWords(clear_, "dim-label");
    auto* const titles = Gtk::make_managed<Gtk::Box>(Gtk::Orientation::VERTICAL);
    titles->append(header_);
    titles->append(relief_);
    column_.append(trouble_);
    column_.append(*titles);
    column_.append(pressed_);
    column_.append(cards_);
    column_.append(elsewhere_);
    column_.append(clear_);
    column_.set_margin(24);
    column_.set_valign(Gtk::Align::START);
    auto* const clamp = ADW_CLAMP(adw_clamp_new());
    adw_clamp_set_maximum_size(clamp, widest);
    adw_clamp_set_child(clamp, GTK_WIDGET(column_.gobj()));
    scroller_.set_child(*Glib::wrap(GTK_WIDGET(clamp)));
    errorBar_.add_css_class("error-bar");
    g_object_set(errorBar_.gobj(), "accessible-role", GTK_ACCESSIBLE_ROLE_ALERT, nullptr);
    error_.set_hexpand(true);
    errorBar_.append(error_);
    append(errorBar_);
    append(scroller_);
    signal_map().connect([this] { show(); });
    signal_unmap().connect([this] { waking_.in(std::nullopt, {}); });
}

void NativeInbox::makeTrouble(std::function<void()> tryAgain) {
    trouble_.add_css_class("card");
    trouble_.add_css_class("question");
    asWords(troubleWords_, "body");
    troubleWords_.set_hexpand(true);
    auto* const again = Gtk::make_managed<Gtk::Button>("Try again");
    again->set_valign(Gtk::Align::CENTER);
    again->signal_clicked().connect(std::move(tryAgain));
    trouble_.append(troubleWords_);
    trouble_.append(*again);
    trouble_.set_visible(false);
}

void NativeInbox::makeElsewhere() {
    asWords(elsewhereWords_, "dim-label");
    elsewhereWords_.set_hexpand(true);
    auto* const all = Gtk::make_managed<Gtk::Button>("Show all");
    all->signal_clicked().connect([this] { model_->setScope(ScopeFilter::all); });
    elsewhere_.append(elsewhereWords_);
    elsewhere_.append(*all);
}

void NativeInbox::setTrouble(const std::optional<std::string>& words) {
    troubleWords_.set_text(words.value_or(""));
    trouble_.set_visible(words.has_value());
}

void NativeInbox::show() {
    if (!get_mapped())
        return;
    const auto now = clock_->now();
    auto list = inboxList(model_->state(), now, filter_);
    waking_.in(cardRowsChangeIn(list.rows, model_->state(), now), [this] { show(); });
    if (shown_ == list)
        return goToCard();
    header_.set_text(list.header);
    relief_.set_text(
        list.snoozed == 0 ? list.relief : fmt::format("{} · {} snoozed", list.relief, list.snoozed));
    error_.set_text(list.error.value_or(""));
    errorBar_.set_visible(list.error.has_value());
    pressed_.set_text(fmt::format("{}", fmt::join(list.pressed, "\n")));
    pressed_.set_visible(!list.pressed.empty());
    cards_.show(list.rows, list.snoozed);
    elsewhereWords_.set_text(list.elsewhere == 1
                                 ? "1 question belongs to another scope."
                                 : fmt::format("{} questions belong to another scope.", list.elsewhere));
    elsewhere_.set_visible(list.elsewhere > 0);
    clear_.set_visible(list.clear);
    shown_ = std::move(list);
    goToCard();
}

/// The card that a press elsewhere was about.
void NativeInbox::goToCard() {
    const auto wanted = model_->state().cardToShow;
    if (wanted && cards_.focusCard(*wanted))
        model_->cardIsShown();
}

void NativeInbox::setFilter(std::string words) {
    filter_ = std::move(words);
    show();
}

void NativeInbox::focusFirst() {
    show();
    if (!cards_.focusFirst())
        scroller_.grab_focus();
}

} // namespace kelvadrome
