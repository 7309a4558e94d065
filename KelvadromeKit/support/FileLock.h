#pragma once

#include "KelvadromeKit/support/Descriptor.h"

#include <string>

namespace kelvadrome {

/// One holder at a time among all processes that take the same file. Let go of with the object, and by the
/// kernel when the process ends.
class FileLock {
public:
    /// Makes the file, of mode 0600, if need be, and waits up to `limit` seconds for those before. Blocks. A
    /// link in its place is refused. Throws std::system_error that names the path.
    FileLock(const std::string& path, double limit);

private:
    Descriptor file_;
};

} // namespace kelvadrome
