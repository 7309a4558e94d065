#include "KelvadromeKit/onboarding/FirstRun.h"

#include "KelvadromeKit/support/Text.h"

#include <boost/url/parse.hpp>
#include <boost/url/url.hpp>

namespace kelvadrome::FirstRun {

Decision decide(std::optional<bool> completed, bool forced) {
    return forced || completed == false ? Decision::onboarding : Decision::main;
}

std::optional<std::string> url(std::string_view base, bool first) {
    const auto parsed = boost::urls::parse_uri(base);
    if (!parsed)
        return std::nullopt;
    boost::urls::url page(*parsed);
    page.set_encoded_path("/onboarding");
    page.set_encoded_query(first ? "shell=native&first_run=1" : "shell=native&first_run=0");
    return std::string(page.buffer());
}

std::optional<std::string> quitPrompt(const std::vector<std::string>& installing) {
    if (installing.empty())
        return std::nullopt;
    if (installing.size() == 1)
        return installing.front() + " is installing. Quit anyway?";
    const std::vector<std::string> others(installing.begin(), installing.end() - 1);
    return Text::join(others, ", ") + " and " + installing.back() + " are installing. Quit anyway?";
}

} // namespace kelvadrome::FirstRun
