#include "Kelvadrome/terminal/TerminalScreen.h"

#include "Kelvadrome/terminal/panel/TerminalColours.h"
#include "Kelvadrome/terminal/panel/TerminalKeys.h"
#include "Kelvadrome/terminal/panel/TerminalText.h"

#include <fmt/format.h>
#include <sodium.h>

#define NCURSES_NOMACROS 1
#define NCURSES_WIDECHAR 1
#include <clocale>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <curses.h>
#include <fcntl.h>
#include <langinfo.h>
#include <poll.h>
#include <sys/ioctl.h>
#include <term.h>
#include <termios.h>
#include <unistd.h>

// term.h names the terminal's capabilities by macros of everyday words.
#undef bell
#undef columns
#undef lines

namespace kelvadrome {

namespace {

constexpr int escapeDelay = 50; // milliseconds
constexpr const char* typeHint =
    "Most terminals are of type xterm-256color: TERM=xterm-256color kelvadrome --terminal";
constexpr int pasteBegins = KEY_MAX + 1;
constexpr int pasteEnds = KEY_MAX + 2;
constexpr std::string_view pasteOn = "\x1b[?2004h";
constexpr std::string_view pasteOff = "\x1b[?2004l";

termios savedModes;
volatile std::sig_atomic_t taken = 0;
constexpr int crashes[] = {SIGSEGV, SIGBUS, SIGILL, SIGFPE, SIGABRT};

extern "C" void giveBackAndDie(int number) {
    TerminalScreen::giveBackAtOnce();
    ::raise(number); // the handler was for once
}

void catchCrashes(bool on) {
    for (const int number : crashes) {
        struct sigaction action {};
        action.sa_handler = on ? giveBackAndDie : SIG_DFL;
        action.sa_flags = on ? static_cast<int>(SA_RESETHAND | SA_NODEFER) : 0;
        ::sigaction(number, &action, nullptr);
    }
}

void useUTF8() {
    std::setlocale(LC_CTYPE, "");
    if (std::string_view(::nl_langinfo(CODESET)) != "UTF-8")
        std::setlocale(LC_CTYPE, "C.UTF-8");
}

/// What a capability of the terminal's description gives; empty when it lacks that.
std::string capability(const char* name) {
    const char* const text = ::tigetstr(name);
    return text && text != reinterpret_cast<const char*>(-1) ? text : "";
}

std::string expanded(const std::string& code, long first, long second = 0) {
    if (code.empty())
        return {};
    const char* const text = ::tparm(code.c_str(), first, second, 0L, 0L, 0L, 0L, 0L, 0L, 0L);
    return text ? text : "";
}

/// Colours that can be read on white and on black; the terminal's own eight can't all, so where it has no
/// more than these, weight alone tells styles apart.
ScreenWriter::Codes codesOf() {
    const char* const noColour = std::getenv("NO_COLOR");
    const bool colours = ::tigetnum("colors") >= 256 && (!noColour || !*noColour);
    const auto colour = [colour = capability("setaf"), colours](
                            short number) { return colours ? expanded(colour, number) : std::string(); };
    const auto bold = capability("bold");
    ScreenWriter::Codes codes{.styles = {"", colour(TerminalColours::dim), bold,
                                  bold + colour(TerminalColours::accent), colour(TerminalColours::good),
                                  colour(TerminalColours::warn), bold + colour(TerminalColours::alert)},
        .reset = capability("sgr0"),
        .clearLine = capability("el"),
        .hideCursor = capability("civis"),
        .showCursor = capability("cnorm"),
        .moveTo = [code = capability("cup")](int row, int column) { return expanded(code, row, column); }};
    return codes;
}

std::optional<Key::Kind> knownKey(wint_t code) {
    switch (code) {
    case KEY_UP:
        return Key::Kind::up;
    case KEY_DOWN:
        return Key::Kind::down;
    case KEY_LEFT:
        return Key::Kind::left;
    case KEY_RIGHT:
        return Key::Kind::right;
    case KEY_HOME:
        return Key::Kind::home;
    case KEY_END:
        return Key::Kind::end;
    case KEY_PPAGE:
        return Key::Kind::pageUp;
    case KEY_NPAGE:
        return Key::Kind::pageDown;
    case KEY_BACKSPACE:
        return Key::Kind::backspace;
    case KEY_DC:
        return Key::Kind::remove;
    case KEY_BTAB:
        return Key::Kind::backTab;
    case KEY_ENTER:
        return Key::Kind::enter;
    case pasteBegins:
        return Key::Kind::pasteBegin;
    case pasteEnds:
        return Key::Kind::pasteEnd;
    default:
        return std::nullopt;
    }
}

} // namespace

/// The library's hold on the terminal.
struct TerminalScreen::Library {
    SCREEN* screen = nullptr;
    std::optional<ScreenWriter> writer;

    Library() {
        screen = ::newterm(nullptr, stdout, stdin);
        if (!screen) {
            const char* const name = std::getenv("TERM");
            throw std::runtime_error(
                fmt::format("this machine doesn't know the terminal type \"{}\"", name ? name : ""));
        }
        ::raw();
        ::noecho();
        ::nonl();
        ::keypad(stdscr, TRUE);
        ::nodelay(stdscr, TRUE);
        ::set_escdelay(escapeDelay);
        ::define_key("\x1b[200~", pasteBegins);
        ::define_key("\x1b[201~", pasteEnds);
        ::erase();
        ::curs_set(0);
        ::refresh(); // takes the screen over; from here on the library only reads keys
        writer.emplace(codesOf());
    }
    ~Library() {
        ::endwin();
        ::delscreen(screen);
    }
};

void TerminalScreen::giveBackAtOnce() {
    if (!taken)
        return;
    constexpr std::string_view restore = "\x1b[?2004l\x1b[m\x1b[?25h\x1b[?1049l";
    [[maybe_unused]] const auto written = ::write(STDOUT_FILENO, restore.data(), restore.size());
    ::tcsetattr(STDIN_FILENO, TCSANOW, &savedModes);
}

std::optional<std::string> TerminalScreen::unusable() {
    if (!::isatty(STDIN_FILENO) || !::isatty(STDOUT_FILENO))
        return "the panel needs a terminal as its standard input and output";
    const char* const type = std::getenv("TERM");
    int known = 0;
    const bool described = type && *type && ::setupterm(type, STDOUT_FILENO, &known) == OK;
    if (described && !capability("cup").empty() && !capability("clear").empty())
        return std::nullopt;
    if (!type || !*type)
        return "TERM isn't set, so nothing is known of this terminal. " + std::string(typeHint);
    return fmt::format("the panel can't be drawn on a terminal of type \"{}\"{}. {}", type,
        described ? ", which has no cursor to move" : ", which this machine doesn't know", typeHint);
}

TerminalScreen::TerminalScreen() {
    useUTF8();
    // Of its own, since watching a descriptor puts it in non-blocking mode, and the standard streams share
    // theirs with whoever started us.
    const char* const name = ::ttyname(STDIN_FILENO);
    input_.reset(::open(name ? name : "/dev/tty", O_RDONLY | O_NOCTTY | O_NONBLOCK | O_CLOEXEC));
    if (!input_)
        throw std::runtime_error("the terminal can't be opened: " + std::string(std::strerror(errno)));
    ::tcgetattr(STDIN_FILENO, &savedModes);
    library_ = std::make_unique<Library>();
    taken = 1;
    catchCrashes(true);
    const std::string_view type = ::termname();
    titles_ = ::tigetflag("XT") > 0 || type.starts_with("screen") || type.starts_with("tmux");
    if (titles_)
        write("\x1b[22;2t");
    write(pasteOn);
}

TerminalScreen::~TerminalScreen() {
    write(pasteOff);
    if (titles_)
        write("\x1b[23;2t");
    library_.reset();
    taken = 0;
    catchCrashes(false);
}

void TerminalScreen::write(std::string_view bytes) {
    while (!bytes.empty()) {
        const auto count = ::write(STDOUT_FILENO, bytes.data(), bytes.size());
        if (count < 0 && errno != EINTR)
            return;
        if (count > 0)
            bytes.remove_prefix(static_cast<std::size_t>(count));
    }
}

ScreenSize TerminalScreen::size() const {
    return {::getmaxy(stdscr), ::getmaxx(stdscr)};
}

void TerminalScreen::resized() {
    winsize now{};
    if (::ioctl(STDOUT_FILENO, TIOCGWINSZ, &now) == 0 && now.ws_row > 0 && now.ws_col > 0) {
        ::resizeterm(now.ws_row, now.ws_col);
        invalidate();
    }
}

void TerminalScreen::draw(const Picture& picture) {
    write(library_->writer->draw(picture, size()));
}

void TerminalScreen::invalidate() {
    ::clearok(curscr, TRUE);
    ::refresh();
    library_->writer->forget();
}

std::vector<Key> TerminalScreen::keys() {
    std::vector<RawKey> batch;
    wint_t code = 0;
    for (int kind = ::get_wch(&code); kind != ERR; kind = ::get_wch(&code)) {
        if (kind != KEY_CODE_YES) {
            batch.emplace_back(static_cast<char32_t>(code));
        } else if (const auto key = knownKey(code)) {
            batch.emplace_back(*key);
        }
    }
    return keysFrom(batch, pasting_);
}

bool TerminalScreen::hungUp() const {
    pollfd state{input_.get(), POLLIN, 0};
    return ::poll(&state, 1, 0) > 0 && (state.revents & (POLLHUP | POLLERR | POLLNVAL)) != 0;
}

void TerminalScreen::bell() {
    write("\a");
}

void TerminalScreen::setTitle(const std::string& title) {
    if (!titles_ || title == title_)
        return;
    title_ = title;
    write("\x1b]2;" + TerminalText::cleanLine(title) + "\x1b\\");
}

void TerminalScreen::copy(const std::string& text) {
    const auto* bytes = reinterpret_cast<const unsigned char*>(text.data());
    std::string encoded(sodium_base64_ENCODED_LEN(text.size(), sodium_base64_VARIANT_ORIGINAL), '\0');
    sodium_bin2base64(encoded.data(), encoded.size(), bytes, text.size(), sodium_base64_VARIANT_ORIGINAL);
    encoded.pop_back(); // the terminating zero
    write("\x1b]52;c;" + encoded + "\x1b\\");
}

void TerminalScreen::suspend() {
    write(pasteOff);
    ::endwin();
    // The whole job stops, as by Ctrl-Z in any program. Without a shell to continue it the system ignores
    // this.
    struct sigaction standard {};
    struct sigaction ours {};
    standard.sa_handler = SIG_DFL;
    ::sigaction(SIGTSTP, &standard, &ours);
    ::kill(0, SIGTSTP);
    ::sigaction(SIGTSTP, &ours, nullptr);
    ::refresh();
    resized();
    invalidate();
    write(pasteOn);
}

} // namespace kelvadrome
