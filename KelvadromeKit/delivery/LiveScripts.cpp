#include "KelvadromeKit/delivery/LiveScripts.h"

#include "KelvadromeKit/delivery/LiveText.h"
#include "KelvadromeKit/support/Text.h"

#include <re2/re2.h>

namespace kelvadrome::LiveScripts {

// Inside these applications' tell blocks "tab" is a class, so separators and control characters are made
// outside.

constexpr std::string_view itermList = R"(on run argv
    set sep to ASCII character 9
    set out to ""
    tell application id "com.googlecode.iterm2"
        repeat with w in windows
            repeat with t in tabs of w
                repeat with s in sessions of t
                    set p to "unknown"
                    try
                        set p to (is at shell prompt of s) as text
                    end try
                    set out to out & (tty of s) & sep & (id of s) & sep & (name of s) & sep & p & linefeed
                end repeat
            end repeat
        end repeat
    end tell
    return out
end run
)";

constexpr std::string_view terminalList = R"(on run argv
    set sep to ASCII character 9
    set out to ""
    tell application id "com.apple.Terminal"
        repeat with w in windows
            set ti to 0
            repeat with t in tabs of w
                set ti to ti + 1
                set out to out & (tty of t) & sep & ((id of w) as text) & ":" & ti & sep & (custom title of t) & sep & "unknown" & linefeed
            end repeat
        end repeat
    end tell
    return out
end run
)";

// The job in front is looked at again here, in the same run as the key: never type into a shell.
constexpr std::string_view itermWrite = R"(on run argv
    set wantedTty to item 1 of argv
    set wantedId to item 2 of argv
    set writeMode to item 3 of argv
    set payload to item 4 of argv
    set esc to ASCII character 27
    set cr to ASCII character 13
    tell application id "com.googlecode.iterm2"
        set found to {}
        repeat with w in windows
            repeat with t in tabs of w
                repeat with s in sessions of t
                    if (tty of s) is wantedTty then set end of found to s
                end repeat
            end repeat
        end repeat
        if (count of found) is 0 then return "missing"
        if (count of found) > 1 then return "ambiguous"
        set s to item 1 of found
        if wantedId is not "" and (id of s) is not wantedId then return "moved"
        try
            if (is at shell prompt of s) then return "shell"
        end try
        set j to ""
        try
            tell s to set j to (variable named "jobName")
        end try
        if j is missing value or j is "" then return "unknown job"
        if j is in {"zsh", "-zsh", "bash", "-bash", "sh", "-sh", "fish", "-fish", "tcsh", "csh", "dash", "ksh", "nu", "login"} then return "shell"
        if writeMode is "esc" then
            tell s to write text esc newline NO
        else if writeMode is "down" then
            tell s to write text (esc & "[B") newline NO
        else if writeMode is "up" then
            tell s to write text (esc & "[A") newline NO
        else if writeMode is "cr" then
            tell s to write text cr newline NO
        else
            tell s to write text payload newline NO
        end if
        return "ok"
    end tell
end run
)";

constexpr std::string_view itermRead = R"(on run argv
    set wantedTty to item 1 of argv
    set wantedId to item 2 of argv
    tell application id "com.googlecode.iterm2"
        set found to {}
        repeat with w in windows
            repeat with t in tabs of w
                repeat with s in sessions of t
                    if (tty of s) is wantedTty then set end of found to s
                end repeat
            end repeat
        end repeat
        if (count of found) is 0 then return "missing"
        if (count of found) > 1 then return "ambiguous"
        set s to item 1 of found
        if wantedId is not "" and (id of s) is not wantedId then return "moved"
        return contents of s
    end tell
end run
)";

constexpr std::string_view itermLabel = R"(on run argv
    set wantedTty to item 1 of argv
    set wantedId to item 2 of argv
    set newName to item 3 of argv
    tell application id "com.googlecode.iterm2"
        set found to {}
        repeat with w in windows
            repeat with t in tabs of w
                repeat with s in sessions of t
                    if (tty of s) is wantedTty then set end of found to s
                end repeat
            end repeat
        end repeat
        if (count of found) is 0 then return "missing"
        if (count of found) > 1 then return "ambiguous"
        set s to item 1 of found
        if (id of s) is not wantedId then return "moved"
        tell s
            set name to newName
            try
                set variable named "user.kelvadrome_callsign" to newName
            end try
        end tell
        return "ok"
    end tell
end run
)";

constexpr std::string_view itermFocus = R"(on run argv
    set wantedTty to item 1 of argv
    tell application id "com.googlecode.iterm2"
        repeat with w in windows
            repeat with t in tabs of w
                repeat with s in sessions of t
                    if (tty of s) is wantedTty then
                        select w
                        tell t to select
                        tell s to select
                        activate
                        return "ok"
                    end if
                end repeat
            end repeat
        end repeat
        return "missing"
    end tell
end run
)";

constexpr std::string_view terminalFocus = R"(on run argv
    set wantedTty to item 1 of argv
    tell application id "com.apple.Terminal"
        repeat with w in windows
            repeat with t in tabs of w
                if (tty of t) is wantedTty then
                    set selected of t to true
                    set index of w to 1
                    activate
                    return "ok"
                end if
            end repeat
        end repeat
        return "missing"
    end tell
end run
)";

constexpr std::string_view itermOpen = R"(on run argv
    set shellLine to item 1 of argv
    tell application id "com.googlecode.iterm2"
        set w to (create window with default profile)
        tell current session of w to write text shellLine
        activate
        return "ok"
    end tell
end run
)";

namespace {

constexpr std::size_t maxRef = 120; // characters

std::optional<HostSession> parseLine(std::string_view line, std::string_view host) {
    static const RE2 ttyPattern("ttys?[0-9]{1,4}");
    constexpr std::string_view device = "/dev/";

    const auto fields = Text::split(line, '\t', Text::EmptyPieces::keep, 3);
    if (fields.size() < 2)
        return std::nullopt;
    auto tty = fields[0];
    if (tty.starts_with(device))
        tty.remove_prefix(device.size());
    if (!RE2::FullMatch(tty, ttyPattern))
        return std::nullopt;
    if (fields[1].empty() || Text::characterCount(fields[1]) > maxRef)
        return std::nullopt;

    HostSession session{
        std::string(host), std::string(tty), std::string(fields[1]), std::nullopt, std::nullopt};
    if (const auto title = LiveText::sanitize(fields.size() > 2 ? fields[2] : "")) {
        session.title = Text::prefix(*title, HostSession::maxTitle);
    }
    if (fields.size() > 3 && fields[3] == "true")
        session.atShellPrompt = true;
    if (fields.size() > 3 && fields[3] == "false")
        session.atShellPrompt = false;
    return session;
}

} // namespace

std::vector<HostSession> parseList(std::string_view output, std::string_view host) {
    std::vector<HostSession> sessions;
    for (const auto line : Text::split(output, '\n')) {
        if (auto session = parseLine(line, host))
            sessions.push_back(std::move(*session));
    }
    return sessions;
}

} // namespace kelvadrome::LiveScripts
