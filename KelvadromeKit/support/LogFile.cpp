#include "KelvadromeKit/support/LogFile.h"

#include <cstdio>
#include <sys/stat.h>

namespace kelvadrome::LogFile {

void makeRoom(const std::string& path) {
    struct stat info {};
    if (::lstat(path.c_str(), &info) == 0 && S_ISREG(info.st_mode) && info.st_size > largest)
        ::rename(path.c_str(), (path + ".1").c_str());
}

} // namespace kelvadrome::LogFile
