#include "Kelvadrome/terminal/panel/ScreenWriter.h"

#include <fmt/format.h>
#include <gtest/gtest.h>

using namespace kelvadrome;

namespace {

ScreenWriter writer() {
    return ScreenWriter({.styles = {"", "<dim>", "<strong>", "", "", "", ""},
        .reset = "</>",
        .clearLine = "<clear>",
        .hideCursor = "<hide>",
        .showCursor = "<show>",
        .moveTo = [](int row, int column) { return fmt::format("<{},{}>", row, column); }});
}

} // namespace

TEST(ScreenWriter, writesOnlyTheLinesThatDiffer) {
    auto screen = writer();
    Picture picture{.lines = {{{"one", Style::plain}}, {{"two", Style::dim}}}};
    EXPECT_EQ(
        screen.draw(picture, {3, 10}), "<hide><0,0>one<clear><1,0><dim>two</><clear><2,0><clear><hide>");
    EXPECT_EQ(screen.draw(picture, {3, 10}), "");
    picture.lines[1] = {{"0123456789", Style::plain}};
    picture.cursor = CommandLine::Place{1, 2};
    EXPECT_EQ(screen.draw(picture, {3, 10}), "<hide><1,0>0123456789<1,2><show>")
        << "a full line isn't cleared";
    screen.forget();
    EXPECT_EQ(screen.draw(picture, {1, 10}), "<hide><0,0>one<clear><1,2><show>");
}

TEST(ScreenWriter, whatFollowsAJoinedEmojiStandsWhereItBelongs) {
    auto screen = writer();
    const Picture picture{.lines = {{{"a👩\u200D💻b", Style::plain}}}};
    EXPECT_EQ(screen.draw(picture, {1, 10}), "<hide><0,0>a👩\u200D💻<0,3>b<clear><hide>");
}
