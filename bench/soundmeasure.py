"""Sounds to encode and measures of what became of them."""

import numpy

PACKET = 1024


def hertz_to_bark(hertz):
    return 13 * numpy.arctan(0.00076 * hertz) + 3.5 * numpy.arctan((hertz / 7500) ** 2)


class Measure:
    """Level error, signal to noise and noise to mask of every packet, for one rate."""

    # Masking falls by so many decibels a bark away from a sound, and lies so much below it.
    UPWARD, DOWNWARD, BELOW = 10, 25, 13
    # Noise further below the mask than this is not told apart, in decibels.
    INAUDIBLE = -6
    # Sound pressure of a full sine, in decibels.
    FULL_SCALE = 96

    def __init__(self, rate):
        self.rate = rate
        self.window = numpy.hanning(2 * PACKET + 1)[:-1]
        hertz = numpy.fft.rfftfreq(2 * PACKET, 1 / rate)
        bands = numpy.minimum(hertz_to_bark(hertz), 24.49).astype(int)
        self.starts = numpy.flatnonzero(numpy.diff(bands, prepend=-1))
        barks = numpy.arange(len(self.starts))
        distance = barks[:, None] - barks[None, :]
        self.spreading = 10 ** (-numpy.where(distance > 0, self.UPWARD * distance, -self.DOWNWARD * distance) / 10)
        kilohertz = numpy.maximum(hertz, 20) / 1000
        quiet = (3.64 * kilohertz ** -0.8 - 6.5 * numpy.exp(-0.6 * (kilohertz - 3.3) ** 2) + 1e-3 * kilohertz ** 4)
        full = 10 * numpy.log10((self.window.sum() / 2) ** 2)
        self.quiet = numpy.minimum.reduceat(10 ** ((numpy.minimum(quiet, 90) - self.FULL_SCALE + full) / 10),
                                            self.starts)

    def bands(self, frames):
        power = numpy.abs(numpy.fft.rfft(frames * self.window, axis=1)) ** 2
        return numpy.add.reduceat(power, self.starts, axis=1)

    def frames(self, samples):
        count = len(samples) // PACKET - 1
        index = numpy.arange(count)[:, None] * PACKET + numpy.arange(2 * PACKET)[None, :]
        return samples[index]

    def noise_to_mask(self, source, heard):
        """Decibels, one a packet: the mean over all bands of the noise's part of what is masked."""
        wanted = self.frames(source)
        mask = numpy.maximum(self.bands(wanted) @ self.spreading.T * 10 ** (-self.BELOW / 10), self.quiet)
        noise = self.bands(self.frames(heard) - wanted)
        return numpy.maximum(10 * numpy.log10((noise / mask).mean(axis=1) + 1e-12), self.INAUDIBLE)

    @staticmethod
    def packets(samples):
        return samples[:len(samples) // PACKET * PACKET].reshape(-1, PACKET)

    def signal_to_noise(self, source, heard):
        """Decibels, one a packet; what is softer than 60 dB below full scale is left out."""
        wanted, got = self.packets(source), self.packets(heard)
        signal, noise = (wanted ** 2).sum(axis=1), ((wanted - got) ** 2).sum(axis=1)
        loud = signal > PACKET * 0.5e-6
        return 10 * numpy.log10(signal[loud] / numpy.maximum(noise[loud], 1e-12))

    def level_error(self, source, heard):
        """Decibels, one a packet that is louder than 60 dB below full scale."""
        wanted, got = (self.packets(samples) for samples in (source, heard))
        signal, energy = (wanted ** 2).sum(axis=1), (got ** 2).sum(axis=1)
        loud = signal > PACKET * 0.5e-6
        return 10 * numpy.log10(numpy.maximum(energy[loud], 1e-12) / signal[loud])


def sounds(seconds, rate, seed):
    """Names and samples, one column a channel, full scale at 1. Pitches are those of the names for seed 1 alone."""
    count = int(seconds * rate)
    time = numpy.arange(count) / rate
    random = numpy.random.default_rng(seed)
    tuning = 1 if seed == 1 else random.uniform(0.8, 1.25)
    highest = min(20000, rate / 2 - 2050) / tuning

    def sine(hertz, level=1.0, phase=0.0):
        return level * numpy.sin(2 * numpy.pi * tuning * hertz * time + phase)

    def noise(low=0, high=1e9):
        spectrum = numpy.fft.rfft(random.standard_normal(count))
        hertz = numpy.fft.rfftfreq(count, 1 / rate)
        spectrum[(hertz < low) | (hertz > high)] = 0
        samples = numpy.fft.irfft(spectrum, count)
        return samples / numpy.abs(samples).max()

    def struck(hertz, every, fall, shape=numpy.sin):
        """A note struck again and again."""
        since = time % every
        steps = (time // every).astype(int)
        scale = numpy.array([0, 4, 7, 12, 7, 4, 2, 5])
        pitch = tuning * hertz * 2 ** (scale[steps % len(scale)] / 12)
        return shape(2 * numpy.pi * pitch * since) * numpy.exp(-fall * since)

    def sweep(low, high):
        growth = numpy.log(high / low) / seconds
        return numpy.sin(2 * numpy.pi * low * (numpy.exp(growth * time) - 1) / growth)

    def square(hertz):
        return sum(sine(hertz * n, 1 / n) for n in range(1, int(highest / hertz), 2)) * 0.85

    def triangle(hertz):
        return 2 * numpy.abs(2 * ((time * tuning * hertz + 0.25) % 1) - 1) - 1

    def saw(hertz):
        return sum(sine(hertz * n, 1 / n) for n in range(1, int(highest / hertz))) * 0.5

    def organ(root):
        return sum(sine(root * ratio * n, 1 / n, n * ratio) for ratio in (1, 1.26, 1.498) for n in (1, 2, 3, 4, 6, 8))

    def hats(every, fall):
        return noise(5000) * numpy.exp(-fall * (time % every))

    def drum(every):
        since = time % every
        return numpy.sin(2 * numpy.pi * (55 * since + 12 * (1 - numpy.exp(-30 * since)))) * numpy.exp(-7 * since)

    def voice(pitch):
        """Pulses of a throat through three formants that change, with hisses between."""
        hertz = tuning * pitch * (1 + 0.06 * numpy.sin(2 * numpy.pi * 2.3 * time))
        pulses = numpy.diff(numpy.floor(numpy.cumsum(hertz) / rate), prepend=0)
        result = numpy.zeros(count)
        block = rate // 4
        vowels = ((730, 1090, 2440), (270, 2290, 3010), (300, 870, 2240), (530, 1840, 2480))
        for number in range(0, count // block + 1):
            part = slice(number * block, min((number + 1) * block, count))
            length = part.stop - part.start
            if length <= 0:
                break
            spectrum = numpy.fft.rfft(pulses[part], 2 * block)
            at = numpy.fft.rfftfreq(2 * block, 1 / rate)
            formants = sum(1 / (1 + ((at - middle) / 60) ** 2) for middle in vowels[number % 4])
            result[part] += numpy.fft.irfft(spectrum * formants, 2 * block)[:length]
        result /= numpy.abs(result).max()
        hiss = noise(3500, 9000) * ((time % 0.5) > 0.4) * 0.3
        return result * ((time % 0.5) <= 0.42) + hiss

    def music(level=1.0):
        chords = sum(struck(hertz, 0.41, 3) * 0.2 for hertz in (110, 220, 277.18, 329.63, 880))
        attacks = 0.4 * noise() * numpy.exp(-40 * (time % 0.41))
        return level * (chords + attacks + 0.02 * noise())

    def normal(samples, level):
        return samples * (level / numpy.abs(samples).max())

    def mono(samples):
        return samples[:, None]

    def both(left, right):
        return numpy.stack([left, right], axis=1)

    click = numpy.zeros(count)
    click[count // 2:count // 2 + 20] = 0.9
    silence = numpy.zeros(count)
    dense = music() + 0.5 * organ(130) / 4 + 0.3 * voice(120) + 0.5 * drum(0.5) + 0.2 * hats(0.25, 20)
    wide = music() + 0.2 * saw(110), music() * 0.7 + 0.3 * organ(98) / 4

    yield from ((f"sine {hertz} Hz, {level}", mono(sine(hertz, level)))
                for hertz, level in ((441, 0.3), (441, 0.5), (441, 0.9), (441, 1.0), (60, 0.9), (1000, 1.0),
                                     (997, 0.9), (5000, 0.9), (12000, 0.9)))
    yield "sine 441 Hz, left = right, .9", both(sine(441, 0.9), sine(441, 0.9))
    yield "sine 441 Hz, left only, .9", both(sine(441, 0.9), silence)
    yield "sine 441 Hz left, 3000 Hz right", both(sine(441, 0.9), sine(3000, 0.9))
    yield "sine 441 Hz, opposite phases", both(sine(441, 0.9), sine(441, -0.9))
    yield "two sines, 440 and 450 Hz", mono(sine(440, 0.45) + sine(450, 0.45))
    yield "sine 441 Hz beside one of 9000 Hz", mono(sine(441, 0.85) + sine(9000, 0.02))
    yield "struck sines, .9", mono(normal(struck(440, 0.5, 4), 0.9))
    yield "struck sines, stereo", both(normal(struck(440, 0.5, 4), 0.9), normal(struck(330, 0.4, 5), 0.7))
    yield "plucked saws", mono(normal(struck(220, 0.3, 9, lambda x: (x / numpy.pi) % 2 - 1), 0.9))
    yield "decays, .9", mono(normal(struck(880, 1, 2), 0.9))
    yield "sweep, .9", mono(0.9 * sweep(30, min(18000, rate * 0.45)))
    yield "sweep, left = right, .9", both(*[0.9 * sweep(30, min(18000, rate * 0.45))] * 2)
    yield "sweep, .3", mono(0.3 * sweep(30, min(18000, rate * 0.45)))
    yield "square 220 Hz", mono(normal(square(220), 0.9))
    yield "square 55 Hz", mono(normal(square(55), 0.9))
    yield "triangle 220 Hz, .9", mono(0.9 * triangle(220))
    yield "triangle 70 Hz, stereo", both(0.9 * triangle(70), 0.9 * triangle(105))
    yield "saw 110 Hz", mono(normal(saw(110), 0.9))
    yield "drum of sines and hats", mono(normal(drum(0.5) + 0.15 * hats(0.25, 25), 0.9))
    yield "drum of sines and hats, stereo", both(normal(drum(0.5) + 0.15 * hats(0.25, 25), 0.9),
                                                 normal(drum(0.5) + 0.2 * hats(0.25, 30), 0.9))
    yield "drum of sines", mono(normal(drum(0.4), 0.9))
    yield "hats", mono(normal(hats(0.2, 25), 0.7))
    yield "castanets", both(normal(noise(1500, 9000) * numpy.exp(-180 * (time % 0.23)), 0.9),
                            normal(noise(1500, 9000) * numpy.exp(-180 * (time % 0.23)), 0.6))
    yield "organ", mono(normal(organ(130.8), 0.9))
    yield "organ, stereo", both(normal(organ(130.8), 0.9), normal(organ(98), 0.8))
    yield "voice, low", mono(normal(voice(105), 0.9))
    yield "voice, high, left = right", both(*[normal(voice(210), 0.9)] * 2)
    yield "noise, .5", mono(0.5 * noise())
    yield "noise, stereo, .9", both(0.9 * noise(), 0.9 * noise())
    yield "noise to 8 kHz", mono(0.9 * noise(20, 8000))
    yield "music", mono(normal(music(), 0.9))
    yield "dense music", mono(normal(dense, 0.9))
    yield "dense music, stereo", both(normal(wide[0], 0.9), normal(wide[1], 0.9))
    yield "clipped music", both(numpy.clip(3 * normal(wide[0], 0.9), -1, 1), numpy.clip(3 * normal(dense, 0.9), -1, 1))
    yield "soft music", mono(normal(music(), 0.01))
    yield "very soft music, stereo", both(normal(wide[0], 0.003), normal(wide[1], 0.003))
    yield "click in silence", mono(click)
    yield "click, left only", both(click, silence)
    yield "silence", both(silence, silence)
