#include "KelvadromeKit/delivery/HostSession.h"

#include "KelvadromeKit/support/Text.h"

namespace kelvadrome {

boost::json::object HostSession::wire() const {
    boost::json::object object{
        {"host", host}, {"tty", tty}, {"ref", ref}, {"title", nullptr}, {"at_shell_prompt", nullptr}};
    if (title)
        object["title"] = Text::prefix(*title, maxTitle);
    if (atShellPrompt)
        object["at_shell_prompt"] = *atShellPrompt;
    return object;
}

} // namespace kelvadrome
