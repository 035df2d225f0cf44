#include "client/sounds/SilentSound.h"

#include "client/text/LocalizedText.h"
#include "platform/foundation/FileDescriptor.h"

#include <array>
#include <cerrno>
#include <cmath>
#include <cstdint>
#include <string_view>

#include <fcntl.h>
#include <unistd.h>

namespace stillora {

namespace {

constexpr uint32_t kBytesPerSample = 2;
constexpr uint32_t kFormatBytes = 16;
constexpr uint16_t kIntegerSamples = 1;

/// Fields of a RIFF file, little-endian.
class Header final {
public:
    Header& add(std::string_view text)
    {
        bytes_ += text;
        return *this;
    }
    Header& add16(uint32_t value) { return addBytes(value, 2); }
    Header& add32(uint32_t value) { return addBytes(value, 4); }
    const std::string& bytes() const { return bytes_; }

private:
    Header& addBytes(uint32_t value, int count)
    {
        for (int i = 0; i < count; ++i)
            bytes_ += static_cast<char>(value >> (8 * i) & 0xFF);
        return *this;
    }

    std::string bytes_;
};

} // namespace

bool writeSilence(const std::string& path, double seconds, int sampleRateHz, int channels, platform::NSError* error)
{
    const auto rate = static_cast<uint32_t>(sampleRateHz);
    const uint32_t frameBytes = kBytesPerSample * static_cast<uint32_t>(channels);
    const auto dataBytes = static_cast<uint32_t>(std::ceil(seconds * sampleRateHz)) * frameBytes;
    Header header;
    header.add("RIFF").add32(4 + 8 + kFormatBytes + 8 + dataBytes).add("WAVE");
    header.add("fmt ").add32(kFormatBytes).add16(kIntegerSamples).add16(static_cast<uint32_t>(channels)).add32(rate);
    header.add32(rate * frameBytes).add16(frameBytes).add16(8 * kBytesPerSample);
    header.add("data").add32(dataBytes);

    const platform::FileDescriptor file(open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0600));
    const std::string& bytes = header.bytes();
    // What is never written reads as zeros.
    if (!file || write(file.get(), bytes.data(), bytes.size()) != static_cast<ssize_t>(bytes.size()) ||
        ftruncate(file.get(), static_cast<off_t>(bytes.size() + dataBytes)) != 0)
        return platform::failWithErrno(error, errno, localized("{} cannot be written", path));
    return true;
}

} // namespace stillora
