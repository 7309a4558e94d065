#include "Kelvadrome/gtk/web/PageStack.h"

#include "Kelvadrome/gtk/parts/AccessibleName.h"
#include "Kelvadrome/gtk/web/GLibPointers.h"

namespace kelvadrome {

PageStack::PageStack(Gtk::Widget& page, std::function<void()> tryAgain)
    : status_(ADW_STATUS_PAGE(adw_status_page_new())) {
    stack_.add(page, "page");
    adw_status_page_set_icon_name(status_, "dialog-warning-symbolic");
    tryAgain_.set_halign(Gtk::Align::CENTER);
    tryAgain_.add_css_class("pill");
    tryAgain_.add_css_class("suggested-action");
    tryAgain_.signal_clicked().connect([this, tryAgain = std::move(tryAgain)] {
        tryAgain_.set_sensitive(false); // until it is known what came of it
        tryAgain();
    });
    adw_status_page_set_child(status_, GTK_WIDGET(tryAgain_.gobj()));
    stack_.add(*Glib::wrap(GTK_WIDGET(status_)), "trouble");
    hideOtherPages(stack_);
}

void PageStack::showPage() {
    const bool changes = std::exchange(trouble_, std::nullopt).has_value();
    const bool focused = tryAgain_.has_focus();
    stack_.set_visible_child("page");
    if (focused)
        stack_.get_visible_child()->grab_focus();
    if (changes && onChange)
        onChange();
}

void PageStack::showTrouble(const std::string& title, const std::string& words) {
    trouble_ = words;
    tryAgain_.set_sensitive(true);
    adw_status_page_set_title(status_, title.c_str());
    const GText markup(g_markup_escape_text(words.c_str(), -1));
    adw_status_page_set_description(status_, markup.get());
    stack_.set_visible_child("trouble");
    if (onChange)
        onChange();
}

} // namespace kelvadrome
