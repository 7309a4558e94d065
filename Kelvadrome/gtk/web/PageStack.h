#pragma once

#include <adwaita.h>
#include <functional>
#include <gtkmm/button.h>
#include <gtkmm/stack.h>
#include <optional>
#include <string>

namespace kelvadrome {

/// A page, or words about what is wrong with it and a button that tries again.
class PageStack {
public:
    PageStack(Gtk::Widget& page, std::function<void()> tryAgain);

    /// Called after the page has given way to words, or the words to the page.
    std::function<void()> onChange;

    Gtk::Widget& widget() { return stack_; }
    void showPage();
    /// `title` is plain text; so is `words`, full sentences.
    void showTrouble(const std::string& title, const std::string& words);
    /// The words that stand in the page's place, if they do.
    const std::optional<std::string>& trouble() const { return trouble_; }

private:
    Gtk::Stack stack_;
    AdwStatusPage* status_; // the stack's
    Gtk::Button tryAgain_{"Try again"};
    std::optional<std::string> trouble_;
};

} // namespace kelvadrome
