#include "client/command/making/FileIdentity.h"

#include <sys/stat.h>

namespace stillora {

bool areSameFile(const std::string& one, const std::string& other)
{
    struct stat first = {};
    struct stat second = {};
    return stat(one.c_str(), &first) == 0 && stat(other.c_str(), &second) == 0 && first.st_dev == second.st_dev &&
           first.st_ino == second.st_ino;
}

} // namespace stillora
