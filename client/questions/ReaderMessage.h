#pragma once

#include <stillora/Types.h>

#include "platform/foundation/FileDescriptor.h"

#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

namespace stillora {

/// What goes over a channel between the library and the program that reads files. A channel is a stream socket on which
/// questions and answers take turns; the answer's number is the question's.
struct ReaderMessage {
    /// Where the program finds the channels, which come over the descriptor that it is started with, one in each
    /// message.
    static constexpr int kControlDescriptor = 3;
    /// With one answer.
    static constexpr size_t kMostLogLines = 100;
    /// Of the version that the program says first, over the same descriptor.
    static constexpr size_t kLongestVersion = 64;

    /// Of a question what is to be done; of an answer whether it was, 1, or whether the time was up, 0.
    uint32_t number = 0;
    /// Why the file that goes with a question could not be opened; 0 where there is one, or none at all.
    int32_t openErrno = 0;
    /// Of the processor's time: for a question; 0 is without limit. Of an answer, where the time was up, how much it
    /// was.
    uint32_t milliseconds = 0;
    /// Of a question, whether a file, or the reason that there is none, goes with it.
    uint16_t hasFile = 0;
    /// Of a question, whether an empty file to be written goes with it, behind the one to be read.
    uint16_t hasOutput = 0;
    /// Of an answer, how many bytes of coded lines for the log come before it.
    uint64_t logLength = 0;
    /// How many bytes follow.
    uint64_t length = 0;
};

/// As many descriptors as go with one message at the most.
inline constexpr size_t kMostPassedDescriptors = 2;

/// Sends bytes, and descriptors with the first of them. Where the socket does not wait, waits for nothing either.
/// @return how many were sent; -1 on failure, which `errno` tells
ssize_t sendPart(int socket, std::span<const std::byte> bytes, std::span<const int> descriptors = {});

/// Receives what is there, at least one byte.
/// @param descriptors  out, optional: those that came with it are added. More than go with one message are closed
/// @return how many were received; 0 at the end; -1 on failure, which `errno` tells
ssize_t receivePart(int socket, std::span<std::byte> bytes,
                    std::vector<platform::FileDescriptor>* descriptors = nullptr);

} // namespace stillora
