// usage: describe-sound SOUND PICTURE
// Tells what the tags of a sound say, and saves a picture of its wave form as a PNG file.

#include <stillora/Files.h>
#include <stillora/Localization.h>
#include <stillora/Sounds.h>
#include <stillora/Waveform.h>

#include <fstream>
#include <iostream>

using namespace stillora;

int main(int argc, char** argv)
{
    if (argc != 3) {
        std::cerr << "usage: describe-sound SOUND PICTURE\n";
        return 2;
    }
    setUpLocalization();

    const auto facts = factsOfFile(argv[1]);
    if (!facts) {
        std::cerr << facts.error().message << '\n';
        return 1;
    }
    std::cout << facts->tags.shownTitle << ", " << facts->tags.shownArtist << ", " << lengthInWords(facts->length)
              << '\n';

    const CheckedSounds sounds = checkSounds({{.path = argv[1], .start = {}, .end = {}}});
    for (const BadFile& sound : sounds.bad)
        std::cerr << sound.path.native() << ": " << sound.reason << '\n';
    if (sounds.good.empty())
        return 1;
    const auto picture = drawWaveform(sounds.good.front(), {.width = 400, .height = 80});
    if (!picture) {
        std::cerr << picture.error().message << '\n';
        return 1;
    }
    std::ofstream file(argv[2], std::ios::binary);
    file.write(reinterpret_cast<const char*>(picture->data()), static_cast<std::streamsize>(picture->size()));
    return file.flush() ? 0 : 1;
}
