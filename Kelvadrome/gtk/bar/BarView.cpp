#include "Kelvadrome/gtk/bar/BarView.h"

#include "Kelvadrome/gtk/bar/BarIcons.h"
#include "Kelvadrome/gtk/parts/AccessibleName.h"
#include "Kelvadrome/gtk/parts/Words.h"

#include <glibmm/main.h>

#include <gtkmm/adjustment.h>
#include <gtkmm/shortcut.h>
#include <gtkmm/shortcutaction.h>
#include <gtkmm/shortcutcontroller.h>
#include <gtkmm/shortcuttrigger.h>
#include <gtkmm/spinner.h>

namespace kelvadrome {

namespace {

// What field, footer and, where there are any, shots leave of the bar's height.
constexpr int tallestRows = 330;
constexpr int tallestRowsBelowShots = 210;
constexpr int lineChars = 70; // of words that wrap: about the width of the bar

using Kind = CommandBarRow::Kind;

} // namespace

BarView::BarView(std::shared_ptr<CommandBarModel> model, std::function<void()> close)
    : Gtk::Box(Gtk::Orientation::VERTICAL, 0), model_(std::move(model)),
      field_({.edit = [this](const std::string& text) { model_->setText(text); },
          .submit = [this] { model_->submit(); },
          .move = [this](int delta) { model_->move(delta); },
          .escape = std::move(close)}),
      strip_([this](const CapturedShot& shot) { model_->remove(shot); }) {
    add_css_class("bar");
    addHead();
    append(strip_);
    list_.set_selection_mode(Gtk::SelectionMode::SINGLE);
    list_.set_focusable(false); // the keys stay in the field, which moves the highlight
    list_.signal_row_activated().connect(
        [this](Gtk::ListBoxRow* row) { rowPressed(static_cast<std::size_t>(row->get_index())); });
    setAccessibleName(list_, "What the words lead to");
    scroller_.set_policy(Gtk::PolicyType::NEVER, Gtk::PolicyType::AUTOMATIC);
    scroller_.set_propagate_natural_height(true);
    scroller_.set_child(list_);
    append(scroller_);
    addFoot();
    watching_ = model_->observe([this] { show(); });
    show();
}

void BarView::addHead() {
    head_.add_css_class("bar-head");
    auto* const search = Gtk::make_managed<Gtk::Image>();
    search->set_from_icon_name("system-search-symbolic");
    search->add_css_class("dim-label");
    setAccessibleHidden(*search, true);
    head_.append(*search);
    head_.append(field_);
    microphone_.add_css_class("flat");
    microphone_.signal_clicked().connect([this] { model_->pressMic(); });
    noMicrophone_.add_css_class("dim-label");
    setAccessibleHidden(noMicrophone_, true);
    head_.append(microphone_);
    head_.append(noMicrophone_);
    addAttach(attachWindow_, CommandBar::attachWindow(), false);
    addAttach(attachRegion_, CommandBar::attachRegion(), true);
    append(head_);
}

void BarView::addAttach(Gtk::Button& press, const CommandBar::Button& button, bool region) {
    press.set_icon_name(barIcon(button.icon));
    press.set_tooltip_text(button.help);
    press.add_css_class("flat");
    press.set_visible(false);
    setAccessibleName(press, button.accessible);
    press.signal_clicked().connect([this, region] { model_->attach(region); });
    head_.append(press);
    const auto keys = Gtk::ShortcutController::create();
    keys->set_scope(Gtk::ShortcutScope::MANAGED);
    keys->add_shortcut(Gtk::Shortcut::create(Gtk::ShortcutTrigger::parse_string(button.key),
        Gtk::CallbackAction::create([this, region](Gtk::Widget& widget, const Glib::VariantBase&) {
            if (widget.get_visible())
                model_->attach(region);
            return widget.get_visible();
        })));
    press.add_controller(keys);
}

void BarView::setCapture(Capture capture) {
    attachWindow_.set_visible(capture.window);
    attachRegion_.set_visible(capture.region);
}

void BarView::addFoot() {
    auto* const foot = Gtk::make_managed<Gtk::Box>(Gtk::Orientation::HORIZONTAL, 12);
    foot->add_css_class("bar-foot");
    elide(footer_);
    footer_.set_hexpand(true);
    footer_.add_css_class("caption");
    footer_.add_css_class("dim-label");
    foot->append(footer_);
    foot->append(key_);
    auto* const hint = wordsLabel(CommandBar::returnHint, "caption", Wrapping::elides);
    hint->add_css_class("dim-label");
    foot->append(*hint);
    append(*foot);
}

void BarView::setKey(const std::string& label) {
    key_.show(label);
    key_.set_visible(!label.empty());
}

void BarView::show() {
    const auto& state = model_->state();
    field_.show(state.text, state.focusToken);
    strip_.show(state.shots, state.screenLine.value_or(""));
    scroller_.set_max_content_height(strip_.get_visible() ? tallestRowsBelowShots : tallestRows);
    showMicrophone();
    showRows(CommandBar::rows(state));
    footer_.set_text(CommandBar::footer(model_->voice()));
    describe();
}

/// The focus stays in the field, so a screen reader hears from it what came of the words, or what Return
/// would do.
void BarView::describe() {
    std::string words;
    const auto add = [&](const std::string& more) {
        if (!more.empty())
            words += (words.empty() ? "" : ", ") + more;
    };
    for (const auto& row : shown_) {
        if (row.highlighted || row.kind == Kind::error || row.kind == Kind::proposal)
            add(row.title);
        if (row.kind == Kind::proposal)
            add(row.detail);
    }
    add(model_->state().screenLine.value_or(""));
    setAccessibleDescription(field_, words);
}

/// What can't be pressed is a plain picture.
void BarView::showMicrophone() {
    const auto button = CommandBar::microphone(model_->voice());
    microphone_.set_visible(button.enabled);
    noMicrophone_.set_visible(!button.enabled);
    if (!button.enabled)
        return noMicrophone_.set_from_icon_name(barIcon(button.icon));
    microphone_.set_icon_name(barIcon(button.icon));
    microphone_.set_tooltip_text(button.help);
    setAccessibleName(microphone_, button.accessible);
}

void BarView::showRows(std::vector<CommandBarRow> rows) {
    scroller_.set_visible(!rows.empty());
    if (rows == shown_)
        return;
    shown_ = std::move(rows);
    while (auto* const old = list_.get_row_at_index(0))
        list_.remove(*old);
    for (const auto& row : shown_) {
        auto* const line = Gtk::make_managed<Gtk::ListBoxRow>();
        line->set_child(rowWidget(row));
        line->set_focusable(false);
        line->set_activatable(row.kind == Kind::ask || row.kind == Kind::hit);
        line->set_selectable(row.highlighted);
        setAccessibleName(*line, row.detail.empty() ? row.title : row.title + ", " + row.detail);
        list_.append(*line);
        if (row.highlighted)
            list_.select_row(*line);
    }
    // Once the rows have their places; ends with this widget.
    Glib::signal_idle().connect(sigc::mem_fun(*this, &BarView::scrollToHighlight), Glib::PRIORITY_LOW);
}

bool BarView::scrollToHighlight() {
    auto* const row = list_.get_selected_row();
    const auto adjustment = scroller_.get_vadjustment();
    double x = 0, y = 0;
    if (row && row->translate_coordinates(list_, 0, 0, x, y))
        adjustment->clamp_page(y, y + row->get_height());
    return false;
}

Gtk::Widget& BarView::rowWidget(const CommandBarRow& row) {
    auto* const line = Gtk::make_managed<Gtk::Box>(Gtk::Orientation::HORIZONTAL, 12);
    line->add_css_class("bar-row");
    if (!row.icon.empty()) {
        auto* const icon = Gtk::make_managed<Gtk::Image>();
        icon->set_from_icon_name(barIcon(row.icon));
        setAccessibleHidden(*icon, true);
        line->append(*icon);
    }
    auto* const words = Gtk::make_managed<Gtk::Box>(Gtk::Orientation::VERTICAL, 2);
    words->set_hexpand(true);
    words->set_valign(Gtk::Align::CENTER);
    const bool isResult = row.kind == Kind::error || row.kind == Kind::proposal;
    const auto add = [&](const std::string& text, const char* style) {
        auto* const label = wordsLabel(text, style, isResult ? Wrapping::wraps : Wrapping::elides);
        if (isResult)
            label->set_max_width_chars(lineChars);
        words->append(*label);
    };
    add(row.title, row.kind == Kind::error ? "error" : "");
    if (!row.detail.empty())
        add(row.detail, "subtitle");
    line->append(*words);
    if (row.busy) {
        auto* const busy = Gtk::make_managed<Gtk::Spinner>();
        busy->start();
        setAccessibleName(*busy, "Asking");
        line->append(*busy);
    } else if (row.kind == Kind::proposal) {
        auto* const open = Gtk::make_managed<Gtk::Button>(row.ending);
        open->set_valign(Gtk::Align::CENTER);
        open->add_css_class("suggested-action");
        open->signal_clicked().connect([this] { model_->openProposal(); });
        line->append(*open);
    } else if (!row.ending.empty()) {
        auto* const ending = wordsLabel(row.ending, "caption", Wrapping::elides);
        ending->add_css_class("dim-label");
        line->append(*ending);
    }
    return *line;
}

void BarView::rowPressed(std::size_t index) {
    if (index >= shown_.size())
        return;
    // By value: what is called here changes the rows.
    const auto row = shown_[index];
    if (row.kind == Kind::ask) {
        model_->select(0);
        model_->submit();
    } else if (row.kind == Kind::hit && row.selection <= model_->state().hits.size()) {
        model_->open(model_->state().hits[row.selection - 1]);
    }
}

} // namespace kelvadrome
