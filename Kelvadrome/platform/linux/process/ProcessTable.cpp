#include "Kelvadrome/platform/linux/process/ProcessTable.h"

#include "KelvadromeKit/support/Files.h"
#include "KelvadromeKit/support/Text.h"

#include <fmt/format.h>
#include <re2/re2.h>

#include <array>
#include <cerrno>
#include <dirent.h>
#include <memory>
#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <unistd.h>

namespace kelvadrome::ProcessTable {

namespace {

constexpr std::size_t statLimit = 4'096;
constexpr std::size_t environmentLimit = 4'000'000;

// Fields of /proc/PID/stat after the command's name, counted from the state.
enum Field {
    state,
    parent,
    group_,
    session,
    terminal,
    foreground,
    started = 19,
    stackStart = 25,
    arguments = 45
};

std::string path(std::int64_t pid, std::string_view file) {
    return fmt::format("/proc/{}/{}", pid, file);
}

/// As ps names a terminal, from the kernel's device number.
std::optional<std::string> terminalName(std::int64_t device) {
    const auto number = static_cast<dev_t>(device);
    const auto kind = gnu_dev_major(number);
    const auto unit = gnu_dev_minor(number);
    if (kind >= 136 && kind <= 143)
        return fmt::format("pts/{}", (kind - 136) * 256 + unit);
    if (kind == 4)
        return unit < 64 ? fmt::format("tty{}", unit) : fmt::format("ttyS{}", unit - 64);
    return std::nullopt;
}

/// Calls `take` for each name in a folder until it says true; false when the folder can't be read.
template <class Take>
bool eachName(const std::string& folder, Take take) {
    const auto close = [](DIR* opened) { ::closedir(opened); };
    const std::unique_ptr<DIR, decltype(close)> opened(::opendir(folder.c_str()), close);
    if (!opened)
        return false;
    while (const auto* entry = ::readdir(opened.get())) {
        if (entry->d_name[0] != '.' && take(std::string_view(entry->d_name)))
            break;
    }
    return true;
}

std::string linkTarget(const std::string& link) {
    std::array<char, 256> buffer;
    const auto length = ::readlink(link.c_str(), buffer.data(), buffer.size());
    return length > 0 ? std::string(buffer.data(), static_cast<std::size_t>(length)) : std::string();
}

/// Absent once the process is gone.
std::optional<uid_t> effectiveUser(std::int64_t pid) {
    static const RE2 line("(?s).*\nUid:\t[0-9]+\t([0-9]+)\t.*");
    const auto status = Files::read(path(pid, "status"), environmentLimit).value_or("");
    uid_t user = 0;
    return RE2::FullMatch(status, line, &user) ? std::optional(user) : std::nullopt;
}

} // namespace

std::optional<Row> parse(std::string_view stat) {
    // The command may hold blanks and parentheses: the last ")" ends it.
    const auto open = stat.find(" (");
    const auto close = stat.rfind(") ");
    if (open == std::string_view::npos || close == std::string_view::npos || close < open)
        return std::nullopt;
    const auto fields = Text::split(Text::trimWhitespace(stat.substr(close + 2)), ' ');
    const auto pid = Text::parseInteger(stat.substr(0, open));
    if (!pid || fields.size() <= Field::arguments || fields[Field::state].size() != 1)
        return std::nullopt;
    const auto number = [&](Field field) { return Text::parseInteger(fields[field]).value_or(0); };
    const auto address = [&](Field field) { return static_cast<std::uint64_t>(number(field)); };
    return Row{.pid = *pid,
        .parent = number(Field::parent),
        .group = number(Field::group_),
        .foregroundGroup = number(Field::foreground),
        .tty = terminalName(number(Field::terminal)),
        .state = fields[Field::state][0],
        .comm = std::string(stat.substr(open + 2, close - open - 2)),
        .started = address(Field::started),
        .stackStart = address(Field::stackStart),
        .argumentsStart = address(Field::arguments)};
}

std::optional<Row> row(std::int64_t pid) {
    const auto stat = Files::read(path(pid, "stat"), statLimit);
    return stat ? parse(*stat) : std::nullopt;
}

std::vector<Row> group(std::int64_t id) {
    std::vector<Row> members;
    eachName("/proc", [&](std::string_view name) {
        const auto pid = Text::parseInteger(name);
        if (!pid)
            return false;
        if (auto found = row(*pid); found && found->group == id)
            members.push_back(std::move(*found));
        return false;
    });
    return members;
}

std::vector<std::string> arguments(std::int64_t pid) {
    const auto all = Files::read(path(pid, "cmdline"), environmentLimit).value_or("");
    std::string_view rest = all;
    if (rest.ends_with('\0'))
        rest.remove_suffix(1);
    std::vector<std::string> words;
    for (const auto word : Text::split(rest, '\0'))
        words.emplace_back(word);
    return words;
}

std::optional<std::string> variable(std::int64_t pid, std::string_view name) {
    const auto all = Files::read(path(pid, "environ"), environmentLimit);
    if (!all)
        return std::nullopt;
    for (const auto entry : Text::split(*all, '\0', Text::EmptyPieces::drop)) {
        if (entry.starts_with(name) && entry.substr(name.size()).starts_with('='))
            return std::string(entry.substr(name.size() + 1));
    }
    return std::nullopt;
}

Hold holdOn(std::int64_t pid, std::string_view tty) {
    const auto folder = path(pid, "fd");
    const auto device = fmt::format("/dev/{}", tty);
    auto hold = Hold::none;
    const bool seen = eachName(folder, [&](std::string_view name) {
        const auto target = linkTarget(fmt::format("{}/{}", folder, name));
        if (target == "/dev/tty" || (name == "0" && target == device))
            hold = Hold::asInput;
        else if ((name == "1" || name == "2") && target == device)
            hold = Hold::asOutput;
        return hold == Hold::asInput;
    });
    // A process of our own may keep its descriptors from us as well (it holds secrets); most such read none.
    if (!seen && (errno == EACCES || errno == EPERM) && effectiveUser(pid) != ::geteuid())
        return Hold::hidden;
    return hold;
}

bool waitsForTerminal(std::int64_t pid) {
    const auto place = Files::read(path(pid, "wchan"), statLimit).value_or("");
    return place == "wait_woken" || place == "n_tty_read";
}

bool hasNamesake(std::int64_t pid, std::string_view tty) {
    const auto device = fmt::format("/dev/{}", tty);
    struct stat real {};
    if (::stat(device.c_str(), &real) != 0)
        return false;
    for (const char* const name : {"fd/0", "fd/1", "fd/2"}) {
        struct stat held {};
        const auto link = path(pid, name);
        if (linkTarget(link) == device && ::stat(link.c_str(), &held) == 0 &&
            (held.st_dev != real.st_dev || held.st_ino != real.st_ino))
            return true;
    }
    return false;
}

} // namespace kelvadrome::ProcessTable
