#pragma once

#include "tests/support/HeadlessDisplay.h"
#include "tests/support/TemporaryFolder.h"

#include <gtest/gtest.h>

#include <adwaita.h>
#include <cstdio>
#include <cstdlib>
#include <functional>
#include <gtkmm/init.h>

namespace kelvadrome::test {

/// The first widget that this holds of, of `top` and all below it.
inline GtkWidget* findWidget(GtkWidget* top, const std::function<bool(GtkWidget*)>& wanted) {
    if (wanted(top))
        return top;
    for (auto* child = gtk_widget_get_first_child(top); child; child = gtk_widget_get_next_sibling(child)) {
        if (auto* const found = findWidget(child, wanted))
            return found;
    }
    return nullptr;
}

/// A display without a screen and the toolkit on it. Where there can be none the tests are skipped, and say
/// so. Who overrides `SetUp` calls this one first and stops when `IsSkipped()`.
class OnADisplay : public testing::Test {
protected:
    void SetUp() override {
        static HeadlessDisplay display; // one for all of a process: the toolkit opens it once
        if (!display.problem().empty()) {
            std::fprintf(stderr, "SKIPPED, NOTHING TESTED: %s\n", display.problem().c_str());
            GTEST_SKIP() << display.problem();
        }
        static const bool ready = [] {
            static const TemporaryFolder home; // nothing of the user's is touched
            for (const auto* name : {"XDG_CONFIG_HOME", "XDG_DATA_HOME", "XDG_CACHE_HOME"})
                setenv(name, home.path().c_str(), 1);
            setenv("GSETTINGS_BACKEND", "memory", 1);
            setenv("GTK_A11Y", "none", 1); // there is no bus for it here
            g_set_prgname("kelvadrome-tests");
            adw_init();
            Gtk::init_gtkmm_internals();
            return true;
        }();
        ASSERT_TRUE(ready);
    }
};

} // namespace kelvadrome::test
