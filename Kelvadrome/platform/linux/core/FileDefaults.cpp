#include "Kelvadrome/platform/linux/core/FileDefaults.h"

#include "KelvadromeKit/support/Descriptor.h"
#include "KelvadromeKit/support/Files.h"
#include "KelvadromeKit/support/Log.h"
#include "KelvadromeKit/support/Text.h"

#include <boost/json/parse.hpp>
#include <boost/json/serialize.hpp>
#include <fmt/format.h>

#include <cerrno>
#include <chrono>
#include <cmath>
#include <fcntl.h>
#include <filesystem>
#include <sys/file.h>
#include <system_error>
#include <thread>

namespace kelvadrome {

namespace {

constexpr std::size_t largestFile = 1 << 20;
constexpr int lockTries = 50; // of 10 ms each

bool isDigit(char c) {
    return c >= '0' && c <= '9';
}

/// A negative number is a value; any other word with a dash begins the next key.
bool isValue(const std::string& word) {
    return !word.starts_with('-') || (word.size() > 1 && isDigit(word[1]));
}

std::map<std::string, std::string, std::less<>> readArguments(const std::vector<std::string>& arguments) {
    std::map<std::string, std::string, std::less<>> result;
    for (std::size_t i = 1; i + 1 < arguments.size(); ++i) {
        const auto& word = arguments[i];
        if (isValue(word) || word.starts_with("--") || !isValue(arguments[i + 1]))
            continue;
        result.insert_or_assign(word.substr(1), arguments[i + 1]);
        ++i;
    }
    return result;
}

std::optional<DefaultsValue> fromJSON(const boost::json::value& value) {
    switch (value.kind()) {
    case boost::json::kind::bool_:
        return value.get_bool();
    case boost::json::kind::int64:
        return value.get_int64();
    case boost::json::kind::uint64:
        return static_cast<double>(value.get_uint64());
    case boost::json::kind::double_:
        return value.get_double();
    case boost::json::kind::string:
        return std::string(value.get_string());
    default:
        return std::nullopt;
    }
}

boost::json::value toJSON(const DefaultsValue& value) {
    if (const auto* text = std::get_if<std::string>(&value))
        return boost::json::string(Text::repairUTF8(*text));
    return std::visit(
        [](const auto& held) -> boost::json::value {
            if constexpr (std::is_arithmetic_v<std::decay_t<decltype(held)>>)
                return held;
            return nullptr;
        },
        value);
}

/// One writer at a time among all processes; absent when another holds on for too long.
Descriptor lockFile(const std::string& path) {
    Descriptor file(::open(path.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0600));
    for (int attempt = 0; file && attempt < lockTries; ++attempt) {
        if (::flock(file.get(), LOCK_EX | LOCK_NB) == 0)
            return file;
        if (errno != EWOULDBLOCK && errno != EINTR)
            break;
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
    const int error = file ? EBUSY : errno;
    throw std::system_error(error, std::generic_category(), path + " could not be locked");
}

/// A settings file that is a link into someone's own collection stays one.
std::string targetOf(const std::string& path) {
    std::error_code failed;
    auto target = std::filesystem::weakly_canonical(path, failed);
    return failed ? path : target.string();
}

} // namespace

FileDefaults::FileDefaults(std::string path, const std::vector<std::string>& arguments)
    : path_(targetOf(path)), arguments_(readArguments(arguments)) {
    try {
        values_ = readFile();
    } catch (const std::system_error& error) {
        tell(error.what());
    }
}

std::string FileDefaults::standardPath(const std::map<std::string, std::string>& environment) {
    const auto folder = environment.find("XDG_CONFIG_HOME");
    // Relative values are to be ignored.
    const auto config = folder != environment.end() && folder->second.starts_with('/')
                            ? folder->second
                            : Files::join(Files::userHome(), ".config");
    return Files::join(config, "kelvadrome/defaults.json");
}

std::optional<DefaultsValue> FileDefaults::object(std::string_view key) const {
    if (const auto argument = arguments_.find(key); argument != arguments_.end())
        return argument->second;
    std::lock_guard guard(lock_);
    const auto* found = values_.if_contains(key);
    return found ? fromJSON(*found) : std::nullopt;
}

void FileDefaults::set(std::string_view key, DefaultsValue value) {
    const auto* number = std::get_if<double>(&value);
    // JSON has no word for these.
    if (number && !std::isfinite(*number))
        return remove(key);
    change(key, std::move(value));
}

void FileDefaults::remove(std::string_view key) {
    change(key, std::nullopt);
}

void FileDefaults::change(std::string_view key, Change value) {
    std::lock_guard guard(lock_);
    if (value) {
        values_.insert_or_assign(key, toJSON(*value));
    } else {
        values_.erase(key);
    }
    pending_.insert_or_assign(std::string(key), std::move(value));
    write(false);
}

bool FileDefaults::synchronize() {
    std::lock_guard guard(lock_);
    return write(true);
}

/// Puts the pending changes on top of what the file holds by now.
bool FileDefaults::write(bool durable) {
    try {
        if (pending_.empty()) {
            values_ = readFile();
            return true;
        }
        Files::makeFolders(Files::parent(path_), 0700);
        const auto writing = lockFile(path_ + ".lock");
        auto values = readFile();
        for (const auto& [key, value] : pending_) {
            if (value) {
                values.insert_or_assign(key, toJSON(*value));
            } else {
                values.erase(key);
            }
        }
        Files::replace(path_, boost::json::serialize(values) + "\n", 0600, durable);
        values_ = std::move(values);
        pending_.clear();
        lastLogged_.clear();
        return true;
    } catch (const std::system_error& error) {
        tell(fmt::format("{}. The settings hold for this run only.", error.what()));
        return false;
    }
}

/// Empty for a file that isn't there. One that is damaged is kept aside, and what was last read of it is
/// written anew. Throws std::system_error.
boost::json::object FileDefaults::readFile() {
    const auto text = Files::read(path_, largestFile);
    if (!text) {
        if (errno == ENOENT)
            return {};
        throw std::system_error(errno, std::generic_category(), path_ + " could not be read");
    }
    boost::system::error_code failed;
    const auto parsed = boost::json::parse(*text, failed);
    if (!failed && parsed.is_object())
        return parsed.get_object();
    keepAside(failed ? failed.message() : "not an object");
    if (!values_.empty())
        Files::replace(path_, boost::json::serialize(values_) + "\n", 0600, false);
    return values_;
}

void FileDefaults::keepAside(const std::string& why) {
    auto aside = path_ + ".damaged";
    for (int number = 1; Files::exists(aside); ++number)
        aside = fmt::format("{}.damaged-{}", path_, number);
    Files::move(path_, aside);
    tell(fmt::format("{} is damaged ({}). It was kept as {}, and the settings {}.", path_, why, aside,
        values_.empty() ? "start anew" : "of this run go on"));
}

void FileDefaults::tell(const std::string& words) {
    if (lastLogged_ == words)
        return;
    lastLogged_ = words;
    logLine(words);
}

} // namespace kelvadrome
