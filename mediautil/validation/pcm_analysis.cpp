#include "mediautil/validation/pcm_analysis.h"

#include <algorithm>

#include "mediautil/validation/pcm_stretch.h"
#include "shared/include/validation/pcm_parser.h"

namespace {

// Samples one by one, by the plain rule, as far as they stand outside a burst. Answers how many.
unsigned addPlain(PcmParser& parser, PcmPattern& pattern, unsigned samples) {
    unsigned done = 0;
    while (done < samples && !(done > 0 && parser.isInBurst())) {
        pattern.add(parser.decodeNextSample());
        ++done;
    }
    return done;
}

// Samples that lie in one stretch of memory. What the vectors don't reach at either end is left to the plain rule: the
// first sample, whose step begins elsewhere, and the last few.
unsigned addStretch(PcmParser& parser, PcmPattern& pattern, PcmScanner& scanner, unsigned samples) {
    unsigned there = 0;
    const unsigned char* const memory = parser.peekSamples(samples, there);
    if (scanner.least() == 0 || there <= scanner.least()) return addPlain(parser, pattern, std::max(there, 1u));
    const unsigned instant = parser.getBytesPerSample() * parser.getChannels();
    pattern.add(parser.decodeNextSample());
    unsigned done = 1;
    while (done < there && !parser.isInBurst()) {
        const PcmStretch stretch = scanner.scan(memory + std::size_t{done} * instant, there - done);
        if (stretch.m_samples == 0) return done + addPlain(parser, pattern, std::min(there - done, scanner.least()));
        parser.skipSamples(stretch.m_samples);
        pattern.add(stretch);
        done += stretch.m_samples;
    }
    return done;
}

}  // namespace

void analysePcm(PcmParser& parser, PcmPattern& pattern, unsigned samples, PcmVectors vectors) {
    PcmScanner scanner(parser, pattern.getLimit(), vectors);
    while (samples > 0) {
        unsigned done = 0;
        if (!parser.isInBurst()) {
            done = addStretch(parser, pattern, scanner, samples);
        } else if ((done = parser.skipBurst(samples)) > 0) {
            pattern.addBurst(done);
        } else {
            // The burst's length, or the first sample behind it.
            pattern.add(parser.decodeNextSample());
            done = 1;
        }
        samples -= done;
    }
}
