#pragma once

#include "KelvadromeKit/support/Defaults.h"

#include <boost/json/object.hpp>

#include <map>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

namespace kelvadrome {

/// The user's defaults in one JSON file of mode 0600, with the arguments of the command line as a volatile
/// layer above. A change is written at once, whole, by renaming, and on top of what other processes have
/// written since. What can't be written stays in memory and is tried again with the next change; that, and a
/// file that can't be read, is told to the log once. A damaged file is kept under another name.
class FileDefaults final : public Defaults {
public:
    /// `arguments` is a whole argument vector, the program's name first: "-Key value" sets a string for this
    /// run.
    FileDefaults(std::string path, const std::vector<std::string>& arguments);

    /// kelvadrome/defaults.json in XDG_CONFIG_HOME, or in ~/.config.
    static std::string standardPath(const std::map<std::string, std::string>& environment);

    std::optional<DefaultsValue> object(std::string_view key) const override;
    void set(std::string_view key, DefaultsValue value) override;
    void remove(std::string_view key) override;
    /// Also takes in what other processes wrote. What it still had to write is on the disk when it returns.
    bool synchronize() override;

private:
    using Change = std::optional<DefaultsValue>; // absent: the key goes

    void change(std::string_view key, Change value);
    bool write(bool durable);
    boost::json::object readFile();
    void keepAside(const std::string& why);
    void tell(const std::string& words);

    const std::string path_;
    const std::map<std::string, std::string, std::less<>> arguments_;
    mutable std::mutex lock_;
    boost::json::object values_; // the file's, values of unknown kinds included, with the pending changes
    std::map<std::string, Change, std::less<>> pending_;
    std::string lastLogged_; // the last thing that the log was told
};

} // namespace kelvadrome
