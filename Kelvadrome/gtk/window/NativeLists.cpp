#include "Kelvadrome/gtk/window/NativeLists.h"

#include "Kelvadrome/gtk/parts/AccessibleName.h"
#include "Kelvadrome/gtk/parts/Words.h"

#include <adwaita.h>

namespace kelvadrome {

namespace {

constexpr int widest = 680;

} // namespace

NativeLists::NativeLists(std::shared_ptr<AppModel> model, std::shared_ptr<Clock> clock)
    : model_(std::move(model)), clock_(std::move(clock)) {
    set_policy(Gtk::PolicyType::NEVER, Gtk::PolicyType::AUTOMATIC);
    title_.add_css_class("title-2");
    wrap(title_);
    g_object_set(title_.gobj(), "accessible-role", GTK_ACCESSIBLE_ROLE_HEADING, nullptr);
    wrap(empty_);
    empty_.add_css_class("dim-label");
    list_.add_css_class("boxed-list");
    list_.set_selection_mode(Gtk::SelectionMode::NONE);
    list_.signal_row_activated().connect([this](Gtk::ListBoxRow* row) {
        const auto index = static_cast<std::size_t>(row->get_index());
        if (index < shown_.size() && !shown_[index].path.empty())
            model_->openMain(shown_[index].path);
    });
    list_.set_header_func([this](Gtk::ListBoxRow* row, Gtk::ListBoxRow*) {
        const auto index = static_cast<std::size_t>(row->get_index());
        if (index < shown_.size() && !shown_[index].heading.empty()) {
            row->set_header(*wordsLabel(shown_[index].heading, "list-heading"));
        } else {
            row->unset_header();
        }
    });
    column_.append(title_);
    column_.append(empty_);
    column_.append(list_);
    column_.set_margin(24);
    column_.set_valign(Gtk::Align::START);
    auto* const clamp = ADW_CLAMP(adw_clamp_new());
    adw_clamp_set_maximum_size(clamp, widest);
    adw_clamp_set_child(clamp, GTK_WIDGET(column_.gobj()));
    set_child(*Glib::wrap(GTK_WIDGET(clamp)));
    signal_map().connect([this] { show(); });
}

std::vector<NativeLists::Row> NativeLists::rows() const {
    const auto& state = model_->state();
    std::vector<Row> rows;
    if (state.section == NavSection::topics) {
        for (const auto& topic : topicRows(state)) {
            if (holdsWords(topic.title, filter_))
                rows.push_back({{}, topic.title, topic.words, {}});
        }
        return rows;
    }
    std::string day;
    for (const auto& receipt : receiptRows(state, filter_, clock_->now())) {
        const bool begins = std::exchange(day, receipt.day) != receipt.day;
        const bool open =
            receipt.card && std::ranges::find(state.cards, *receipt.card, &Card::id) != state.cards.end();
        rows.push_back({begins ? receipt.day : std::string(), receipt.words,
            receipt.time + (receipt.topic ? " · " + *receipt.topic : std::string()),
            open ? "/?card=" + *receipt.card : std::string()});
    }
    return rows;
}

void NativeLists::show() {
    if (!get_mapped())
        return;
    const bool topics = model_->state().section == NavSection::topics;
    auto fresh = rows();
    title_.set_text(topics ? "Topics" : "Receipts");
    setAccessibleName(list_, title_.get_text());
    empty_.set_text(!filter_.empty() ? "Nothing here has these words."
                    : topics         ? "A topic comes with the first question that names one."
                                     : "What is done with your answers is kept here.");
    empty_.set_visible(fresh.empty());
    list_.set_visible(!fresh.empty());
    if (fresh == shown_)
        return;
    shown_ = std::move(fresh);
    build();
}

void NativeLists::build() {
    while (auto* const row = list_.get_row_at_index(0))
        list_.remove(*row);
    for (const auto& shown : shown_) {
        auto* const words = Gtk::make_managed<Gtk::Box>(Gtk::Orientation::VERTICAL, 2);
        words->set_margin(12);
        words->append(*wordsLabel(shown.title, ""));
        words->append(*wordsLabel(shown.detail, "caption"));
        auto* const row = Gtk::make_managed<Gtk::ListBoxRow>();
        row->set_child(*words);
        row->set_activatable(!shown.path.empty());
        setAccessibleName(*row, shown.title + ", " + shown.detail);
        list_.append(*row);
    }
    list_.invalidate_headers();
}

void NativeLists::setFilter(std::string words) {
    filter_ = std::move(words);
    show();
}

} // namespace kelvadrome
