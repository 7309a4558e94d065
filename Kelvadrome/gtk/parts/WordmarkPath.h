#pragma once

#include "KelvadromeKit/brand/Wordmark.h"

#include <cairomm/context.h>
#include <vector>

namespace kelvadrome {

/// Adds the commands to the context's path, in the units of the drawing.
void addToPath(Cairo::Context& on, const std::vector<Wordmark::Command>& commands);

} // namespace kelvadrome
