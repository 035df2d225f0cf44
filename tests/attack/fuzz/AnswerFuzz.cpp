#include "client/questions/Coding.h"
#include "client/questions/Questions.h"
#include "tests/attack/fuzz/Checked.h"

#include <array>
#include <span>
#include <type_traits>

using namespace stillora;

namespace {

/// For a decoder to fill.
template <typename Value>
Value blank()
{
    if constexpr (std::is_default_constructible_v<Value>)
        return {};
    else
        return Error();
}

/// What is read and believed can be handed on: it is the same when it is written and read again.
template <typename Value>
void readAs(std::span<const std::byte> bytes)
{
    auto value = blank<Value>();
    Decoder decoder(bytes);
    decoder(value);
    if (!decoder.isWhole())
        return;
    if constexpr (requires { isPlausible(value); })
        (void)isPlausible(value);
    Encoder encoder;
    encoder(value);
    const Bytes written = encoder.bytes();
    auto again = blank<Value>();
    Decoder second(written);
    second(again);
    mustHold(second.isWhole(), "what is written can be read");
    Encoder other;
    other(again);
    mustHold(other.bytes() == written, "it is the same");
}

template <typename Question>
void readQuestionAndAnswer(std::span<const std::byte> bytes)
{
    readAs<Question>(bytes);
    readAs<typename Question::Answer>(bytes);
}

} // namespace

// What the program that reads files is asked, and what it answers, which may be in the hands of a stranger.
extern "C" int LLVMFuzzerTestOneInput(const uint8_t* bytes, size_t length)
{
    const auto all = std::as_bytes(std::span(bytes, length));
    if (all.empty())
        return 0;
    using Reading = void (*)(std::span<const std::byte>);
    constexpr std::array<Reading, 13> kReadings = {
        readQuestionAndAnswer<PhotoQuestion>,     readQuestionAndAnswer<SoundQuestion>,
        readQuestionAndAnswer<FactsQuestion>,     readQuestionAndAnswer<ColorQuestion>,
        readQuestionAndAnswer<FittedQuestion>,    readQuestionAndAnswer<PictureQuestion>,
        readQuestionAndAnswer<FrameQuestion>,     readQuestionAndAnswer<WaveformQuestion>,
        readQuestionAndAnswer<SoundCopyQuestion>, readQuestionAndAnswer<MovieQuestion>,
        readQuestionAndAnswer<SampleQuestion>,    readQuestionAndAnswer<BlackFrameQuestion>,
        readQuestionAndAnswer<AbilitiesQuestion>,
    };
    kReadings[bytes[0] % kReadings.size()](all.subspan(1));
    return 0;
}
