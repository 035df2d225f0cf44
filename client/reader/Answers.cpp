#include "client/reader/Answers.h"

#include "client/questions/Coding.h"

namespace stillora {

namespace {

/// Calls `use` with the question that a task's bytes are; not where they are none.
template <typename Question, typename Use>
void useQuestion(uint32_t task, std::span<const std::byte> bytes, Use& use)
{
    if (task != static_cast<uint32_t>(Question::kTask))
        return;
    Question question;
    Decoder decoder(bytes);
    decoder(question);
    if (decoder.isWhole())
        use(question);
}

template <typename... Questions>
struct KnownQuestions {
    template <typename Use>
    static void use(uint32_t task, std::span<const std::byte> bytes, Use use)
    {
        (useQuestion<Questions>(task, bytes, use), ...);
    }
};

using Known = KnownQuestions<PhotoQuestion, SoundQuestion, FactsQuestion, ColorQuestion, FittedQuestion,
                             PictureQuestion, FrameQuestion, WaveformQuestion, SoundCopyQuestion, MovieQuestion,
                             SampleQuestion, BlackFrameQuestion, AbilitiesQuestion>;

} // namespace

std::optional<Bytes> codedAnswer(uint32_t task, std::span<const std::byte> question)
{
    std::optional<Bytes> coded;
    Known::use(task, question, [&](const auto& asked) {
        Encoder encoder;
        encoder(answerTo(asked));
        coded = encoder.bytes();
    });
    return coded;
}

FilesOfQuestion filesOfQuestion(uint32_t task, std::span<const std::byte> question)
{
    FilesOfQuestion files;
    Known::use(task, question, [&](const auto& asked) {
        if constexpr (requires { asked.file; })
            files.read = asked.file;
        if constexpr (requires { asked.output; })
            files.written = asked.output;
    });
    return files;
}

} // namespace stillora
