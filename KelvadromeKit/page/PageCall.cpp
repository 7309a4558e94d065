#include "KelvadromeKit/page/PageCall.h"

#include "KelvadromeKit/page/JS.h"
#include "KelvadromeKit/support/Text.h"

namespace kelvadrome {

namespace {

constexpr const char* pressScopeButton =
    "(function(t){var bs=document.querySelectorAll('.scopes .kd-seg__item');for(var i=0;i<bs.length;i++)"
    "{if((bs[i].textContent||'').trim().indexOf(t)===0){if(bs[i].getAttribute('aria-pressed')!=='true')"
    "bs[i].click();return true}}return false})(";

} // namespace

PageCall PageCall::navigate(const std::string& path, const std::optional<std::string>& focus) {
    const auto to = focus ? path + "?card=" + *focus : path;
    PageCall call{"b.navigate(" + JS::string(to) + ")", path, {}};
    if (focus)
        call.extra.emplace_back("card", *focus);
    return call;
}

PageCall PageCall::search(std::string_view query) {
    const std::string trimmed(Text::trimWhitespace(query));
    return {"b.search && b.search(" + JS::string(trimmed) + ") !== false && Boolean(b.search)", "/search",
        {{"q", trimmed}}};
}

PageCall PageCall::setScope(ScopeFilter scope, const std::string& path) {
    return {"b.setScope ? b.setScope(" + JS::string(rawValue(scope)) + ") !== false : " + pressScopeButton +
                JS::string(title(scope)) + ")",
        path, {}};
}

std::string PageCall::script() const {
    return "(function(){ var b = window.kelvadrome; if (b) { return Boolean(" + expression +
           ") } return false })()";
}

std::string setThemeScript(std::string_view theme) {
    return "window.kelvadrome && window.kelvadrome.setTheme && window.kelvadrome.setTheme(" +
           JS::string(theme) + ")";
}

} // namespace kelvadrome
