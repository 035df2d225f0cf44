#include "client/text/FileReason.h"

#include "platform/foundation/LocalizedText.h"

namespace stillora {

std::string reasonOfErrno(int errnoValue)
{
    return platform::reasonOfErrno(errnoValue);
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
