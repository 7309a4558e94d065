#pragma once

#include "Kelvadrome/model/AppModel.h"
#include "KelvadromeKit/support/JSON.h"

#include <optional>
#include <string>
#include <string_view>

/// What the page asks of the shell. The page is trusted only as far as the checks here go; what fails one is
/// dropped without a word.
namespace kelvadrome::NativeActions {

/// Carries out one message from the page. Main executor.
void handle(const std::string& type, const JSONObject& body, AppModel& model);

/// The folder in a topic's details: "folder", "folder_path", or what holds "continuity_path", as the first
/// that is an absolute path; else the same of the inner "topic".
std::optional<std::string> findPath(const JSONObject& object);

} // namespace kelvadrome::NativeActions
