#pragma once

#include "client/reader/Questions.h"

#include <cstddef>
#include <optional>
#include <span>

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
/// @}

/// The same of coded questions.
/// @return the answer, coded; nothing where the question is none
std::optional<Bytes> codedAnswer(uint32_t task, std::span<const std::byte> question);

/// The file that a coded question is about; empty where it is about none.
std::filesystem::path fileOfQuestion(uint32_t task, std::span<const std::byte> question);

} // namespace stillora
