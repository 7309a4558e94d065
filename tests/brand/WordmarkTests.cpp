#include "KelvadromeKit/brand/Wordmark.h"

#include <gtest/gtest.h>

#include <algorithm>

namespace kelvadrome::Wordmark {

// Prints a failure well; by the same names as the path syntax.
void PrintTo(const Command& command, std::ostream* out) {
    struct Writer {
        std::ostream& out;
        void operator()(const Move& m) const { out << "M " << m.x << ' ' << m.y; }
        void operator()(const Line& l) const { out << "L " << l.x << ' ' << l.y; }
        void operator()(const Quad& q) const {
            out << "Q " << q.cx << ' ' << q.cy << ' ' << q.x << ' ' << q.y;
        }
        void operator()(const Cubic& c) const {
            out << "C " << c.c1x << ' ' << c.c1y << ' ' << c.c2x << ' ' << c.c2y << ' ' << c.x << ' ' << c.y;
        }
        void operator()(const Close&) const { out << 'Z'; }
    };
    std::visit(Writer{*out}, command);
}

namespace {

using Commands = std::vector<Command>;

TEST(Wordmark, pathsAreReadIntoCommands) {
    const struct {
        const char* text;
        Commands commands;
    } rows[] = {
        {"", {}},
        {" , ", {}},
        {"M 1 2 L 3 4 Z", {Move{1, 2}, Line{3, 4}, Close{}}},
        {"M1 2 3 4", {Move{1, 2}, Line{3, 4}}},
        {"1 2", {Move{1, 2}}},
        {"1 2 3 4 Z Z", {Move{1, 2}, Line{3, 4}, Close{}, Close{}}},
        {"M 0 0 L 1 1 2 2", {Move{0, 0}, Line{1, 1}, Line{2, 2}}},
        {"Q 1 2 3 4 5 6 7 8", {Quad{1, 2, 3, 4}, Quad{5, 6, 7, 8}}},
        {"C 1 2 3 4 5 6 7 8 9 10 11 12", {Cubic{1, 2, 3, 4, 5, 6}, Cubic{7, 8, 9, 10, 11, 12}}},
        {"M1,2-3-4.5", {Move{1, 2}, Line{-3, -4.5}}},
        {"M+1 .5Z M 2. \n3", {Move{1, .5}, Close{}, Move{2, 3}}},
    };
    for (const auto& row : rows)
        EXPECT_EQ(parse(row.text), row.commands) << row.text;
}

TEST(Wordmark, whatIsNoPathIsRefusedWhereItGoesWrong) {
    const struct {
        const char* text;
        ParseError::Reason reason;
    } rows[] = {
        {"M 1", BadNumber{2}}, {"M", BadNumber{1}}, {"M 1 L", BadNumber{2}},
        {"M 1 2 L 3 4.5.6", BadNumber{5}}, {"M 1 --2", BadNumber{2}}, {"M 1 2\n3 4", BadNumber{2}},
        {"M 1 2\t", BadNumber{2}}, {"M 1e5 2", BadNumber{2}}, {"M 0x10 2", BadNumber{2}},
        {"M 1 \xFF", BadNumber{2}}, {"m 1 2", Unsupported{"m"}}, {"M 1 2 H 3", Unsupported{"H"}},
        {"M 1 2 Z 3 4", Unsupported{"Z"}}, {"M 1 2 \xC3\xA9", Unsupported{"\xC3\xA9"}},
        {"M 1 2 e\xCC\x81 3", Unsupported{"e\xCC\x81"}}, // one character of two scalars
    };
    for (const auto& row : rows) {
        try {
            parse(row.text);
            ADD_FAILURE() << "accepted: " << row.text;
        } catch (const ParseError& error) {
            EXPECT_EQ(error, ParseError(row.reason)) << row.text << ": " << error.what();
        }
    }
}

/// The smallest box around a path's points, control points included.
struct Box {
    double left = 1e9, top = 1e9, right = -1e9, bottom = -1e9;

    void add(double x, double y) {
        left = std::min(left, x);
        right = std::max(right, x);
        top = std::min(top, y);
        bottom = std::max(bottom, y);
    }
};

Box boxAround(const Commands& commands) {
    Box box;
    for (const auto& command : commands) {
        if (const auto* move = std::get_if<Move>(&command))
            box.add(move->x, move->y);
        else if (const auto* line = std::get_if<Line>(&command))
            box.add(line->x, line->y);
        else if (const auto* cubic = std::get_if<Cubic>(&command)) {
            box.add(cubic->c1x, cubic->c1y);
            box.add(cubic->c2x, cubic->c2y);
            box.add(cubic->x, cubic->y);
        }
    }
    return box;
}

TEST(Wordmark, theDrawingFillsItsPlace) {
    const auto word = parse(wordPath);
    const auto mark = parse(dotPath);
    EXPECT_EQ(std::ranges::count(mark, Command(Close{})), 2) << "the track and the dot";
    for (const auto& path : {word, mark}) {
        EXPECT_TRUE(std::holds_alternative<Move>(path.front()));
        EXPECT_EQ(path.back(), Command(Close{}));
    }
    const auto letters = boxAround(word);
    EXPECT_NEAR(letters.left, originX, .01);
    EXPECT_NEAR(letters.right - originX + offsetX, width, .01);
    const auto ring = boxAround(mark);
    EXPECT_GE(ring.left, 0);
    EXPECT_LT(ring.right, offsetX);
    for (const auto& box : {letters, ring}) {
        EXPECT_GE(box.top, 0);
        EXPECT_LE(box.bottom, height);
    }
}

} // namespace

} // namespace kelvadrome::Wordmark
