#pragma once

#include <optional>
#include <string>
#include <string_view>

/// Which paths may be revealed in the file browser on behalf of the page.
namespace kelvadrome::RevealPolicy {

/// The standardised path, or nothing: for a path that isn't absolute, has over 1024 characters or a NUL, or
/// has a component that is an application, installer or plug-in bundle.
std::optional<std::string> allowed(std::string_view path);

} // namespace kelvadrome::RevealPolicy
