#include "tests/support/TemporaryFolder.h"

#include <cstdlib>
#include <system_error>

namespace kelvadrome::test {

TemporaryFolder::TemporaryFolder() {
    std::string name = (std::filesystem::temp_directory_path() / "kd-XXXXXX").string();
    if (!::mkdtemp(name.data()))
        throw std::system_error(errno, std::generic_category(), name);
    path_ = name;
}

TemporaryFolder::~TemporaryFolder() {
    std::error_code ignored;
    std::filesystem::remove_all(path_, ignored);
}

} // namespace kelvadrome::test
