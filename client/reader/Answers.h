#pragma once

#include "client/questions/Questions.h"

#include <cstddef>
#include <optional>
#include <span>
#include <string>
#include <vector>

namespace stillora {

/// What the program that reads files does: all that decodes what strangers made. Any thread.
/// @{
PhotoLook answerTo(const PhotoQuestion& question);
SoundMeasure answerTo(const SoundQuestion& question);
Result<FileFacts> answerTo(const FactsQuestion& question);
std::optional<Color> answerTo(const ColorQuestion& question);
Result<PictureAnswer> answerTo(const FittedQuestion& question);
Result<PictureAnswer> answerTo(const PictureQuestion& question);
Result<PictureAnswer> answerTo(const FrameQuestion& question);
Result<PictureAnswer> answerTo(const WaveformQuestion& question);
Result<Seconds> answerTo(const SoundCopyQuestion& question);
Result<MovieLook> answerTo(const MovieQuestion& question);
Result<SampledFrame> answerTo(const SampleQuestion& question);
double answerTo(const BlackFrameQuestion& question);
Abilities answerTo(const AbilitiesQuestion& question);
/// @}

/// What this process could not give up, for whoever asks what it can do. Called once, before the first question.
void setLacksOfConfinement(std::vector<std::string> lacks);

/// The same of coded questions.
/// @return the answer, coded; nothing where the question is none
std::optional<Bytes> codedAnswer(uint32_t task, std::span<const std::byte> question);

/// The files that a question is about; empty where it is about none.
struct FilesOfQuestion {
    std::filesystem::path read;
    std::filesystem::path written;
};

FilesOfQuestion filesOfQuestion(uint32_t task, std::span<const std::byte> question);

} // namespace stillora
