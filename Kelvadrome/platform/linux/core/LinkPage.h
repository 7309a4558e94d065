#pragma once

#include "KelvadromeKit/daemon/DaemonEnvironment.h"

#include <string>

namespace kelvadrome {

/// A page of our own in a file that only this user can read, which leads a browser on to a link. Every
/// process of the machine can read the arguments with which a browser is started, and whoever opens a login
/// link first is in: so the browser is given this file's name instead. Gone with the object. Blocks for a
/// moment.
class LinkPage {
public:
    /// In `folder`, which is made if need be. Throws std::system_error that names the path.
    LinkPage(const std::string& folder, const std::string& link);
    ~LinkPage();
    LinkPage(const LinkPage&) = delete;
    LinkPage& operator=(const LinkPage&) = delete;

    /// The page's own address, for the browser.
    std::string url() const;

    /// Where such pages lie: in the user's runtime folder; in `dataHome` without one, and where the browsers
    /// are snaps, which see nothing of that folder.
    static std::string folder(const EnvironmentMap& environment, const std::string& dataHome);

private:
    std::string path_;
};

} // namespace kelvadrome
