#pragma once

#include <stillora/Error.h>
#include <stillora/Types.h>

#include "client/questions/Coding.h"
#include "client/questions/Questions.h"
#include "platform/foundation/Lock.h"

#include <chrono>
#include <cstdint>
#include <filesystem>
#include <functional>
#include <memory>
#include <optional>
#include <span>

namespace stillora {

/// Has files of strangers read by a program of its own, which may do nothing else: this process opens them, and decodes
/// none. The program is started when it is first needed, answers several questions at a time, and ends with this
/// process. Where it crashes or takes too long over a file, it is ended and started anew: the others are asked again,
/// one after the other, so that the one that it fails on is known. Any thread.
class FileReader final {
public:
    struct Limits {
        /// Of the processor's time, for each question.
        std::chrono::milliseconds work{60'000};
        /// Of time, for each question: on a busy machine it takes long to get the processor.
        std::chrono::milliseconds wait{600'000};
    };

    /// Of all questions of the library.
    static FileReader& shared();

    FileReader();
    explicit FileReader(Limits limits);
    /// Ends the program.
    ~FileReader();
    FileReader(const FileReader&) = delete;
    FileReader& operator=(const FileReader&) = delete;

    /// Why no file can be read at all: the program is not there, cannot be started, or is of another version than this
    /// library. Starts it and waits until it has said its version.
    ///
    /// @param goesOn  as in `ask`; false ends the wait, and not the program
    std::optional<Error> fault(const std::function<bool()>& goesOn = {});

    /// Blocks until the question is answered.
    ///
    /// A file that the question names as its output is made, or emptied, and handed to the program to be written.
    ///
    /// @param goesOn  asked every few hundredths of a second; false ends the program. May be empty
    /// @return why there is no answer, without the file's path: the program crashed, took too long, or cannot be
    /// started, or the output cannot be made
    template <typename Question>
    Result<typename Question::Answer> ask(const Question& question, const std::function<bool()>& goesOn = {})
    {
        Encoder encoder;
        encoder(question);
        Files files;
        if constexpr (requires { question.file; })
            files.read = &question.file;
        if constexpr (requires { question.output; })
            files.written = question.output.empty() ? nullptr : &question.output;
        const Limits limits = requires
        {
            Question::kIsEndless;
        }
        ? kNoLimits : limits_;
        typename Question::Answer answer = noAnswer(static_cast<typename Question::Answer*>(nullptr));
        const auto take = [&answer](const Bytes& coded) {
            Decoder decoder(coded);
            decoder(answer);
            return decoder.isWhole() && isPlausible(answer);
        };
        if (auto error = exchange(static_cast<uint32_t>(Question::kTask), encoder.bytes(), files, limits, goesOn, take))
            return *std::move(error);
        return answer;
    }

private:
    class Program;
    class Turn;
    struct Attempt;
    struct Question;

    /// The paths of a question; null where it has none.
    struct Files {
        const std::filesystem::path* read = nullptr;
        const std::filesystem::path* written = nullptr;
    };

    template <typename Value>
    static Value noAnswer(const Value*)
    {
        return Value{};
    }
    template <typename Value>
    static Result<Value> noAnswer(const Result<Value>*)
    {
        return Error{};
    }

    /// @param take  answers whether what the program says can be
    /// @return why there is no answer; nothing where one was taken
    std::optional<Error> exchange(uint32_t task, const Bytes& arguments, const Files& files, const Limits& limits,
                                  const std::function<bool()>& goesOn, const std::function<bool(const Bytes&)>& take);
    Attempt attempt(const Question& question, const Turn& turn);
    /// The one that runs, or a new one.
    /// @param error  out: why there is none, as a sentence of its own
    std::shared_ptr<Program> program(Error& error);

    /// For what takes hours, and can be stopped: 0 of work is without limit.
    static constexpr Limits kNoLimits{std::chrono::milliseconds(0), std::chrono::hours(10'000)};

    const Limits limits_;
    platform::Lock lock_;
    platform::Condition changed_;
    std::shared_ptr<Program> program_ GUARDED_BY(lock_);
    /// Questions that are asked at the moment, and whether one of them is to be alone.
    size_t asking_ GUARDED_BY(lock_) = 0;
    bool isAlone_ GUARDED_BY(lock_) = false;
};

} // namespace stillora
