// Stands in for the program that reads files: what it does follows from a file's name. Channels are served by the real
// program's own code.

#include "client/questions/Coding.h"
#include "client/reader/Answers.h"
#include "client/reader/ReaderService.h"
#include "platform/foundation/NSLog.h"

#include <atomic>
#include <csignal>
#include <cstdlib>
#include <string_view>

#include <unistd.h>

namespace stillora {

namespace {

Bytes coded(const PhotoLook& look)
{
    Encoder encoder;
    encoder(look);
    return encoder.bytes();
}

Bytes answerFor(const std::string& name)
{
    PhotoLook look;
    look.kind = PhotoLook::Kind::Good;
    look.size = {640, 480};
    if (name.starts_with("crash")) {
        // A sanitizer would make a report of it.
        std::signal(SIGSEGV, SIG_DFL);
        raise(SIGSEGV);
    }
    if (name.starts_with("leave"))
        _exit(7);
    if (name.starts_with("hang"))
        for (;;)
            pause();
    if (name.starts_with("compute"))
        for (std::atomic<int> count{0};;)
            ++count;
    if (name.starts_with("log"))
        platform::NSLog("seen\x1b[2J");
    if (name.starts_with("nonsense"))
        return Bytes(100, std::byte{0xEE});
    if (name.starts_with("huge"))
        look.size = {1e9, 1e9};
    Bytes answer = coded(look);
    if (name.starts_with("short"))
        answer.pop_back();
    return answer;
}

} // namespace

FilesOfQuestion filesOfQuestion(uint32_t, std::span<const std::byte> bytes)
{
    // It comes first in every question.
    FilesOfQuestion files;
    Decoder decoder(bytes);
    decoder(files.read);
    return files;
}

std::optional<Bytes> codedAnswer(uint32_t task, std::span<const std::byte> question)
{
    return answerFor(filesOfQuestion(task, question).read.filename().native());
}

} // namespace stillora

int main()
{
    const char* const version = std::getenv("STILLORA_PRETENDED_VERSION");
    while (version && std::string_view(version) == "never said")
        pause();
    return stillora::ReaderService::run(version ? version : STILLORA_VERSION) ? EXIT_SUCCESS : EXIT_FAILURE;
}
