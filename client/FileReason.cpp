#include "client/FileReason.h"

#include <cstring>

namespace stillora {

std::string reasonOfErrno(int errnoValue)
{
    const char* reason = strerrordesc_np(errnoValue);
    return reason ? reason : "error " + std::to_string(errnoValue);
}

std::string reasonWithoutPath(const std::string& sentence, const platform::NSURL& url)
{
    for (const std::string& name : {url.path(), url.lastPathComponent()})
        for (const std::string& separator : {std::string(": "), std::string(" ")})
            if (sentence.starts_with(name + separator))
                return sentence.substr(name.size() + separator.size());
    return sentence;
}

} // namespace stillora
