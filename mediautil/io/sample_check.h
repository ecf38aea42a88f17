#pragma once

#include "shared/include/object/switches.h"

class MediaIoBuf;
struct MediaSampleInMovie;
struct phantom_OBUF;

// Looks at samples on their way between memory and file while a bit of `mediaValidate` is on. It changes neither the
// data nor the outcome of the read or write. The roads know no more of it than this; who checks enters himself.
// **Threads:** called on clients' threads and on the validation thread, several at once, with no lock held.
class SampleCheck {
public:
    // `data` is borrowed for the length of the call; it may be null for an obuf of which nothing came.
    virtual void validate(const MediaSampleInMovie& sample, bool writing, const MediaIoBuf& data) = 0;
    virtual void validate(const MediaSampleInMovie& sample, bool writing, phantom_OBUF* data) = 0;

    // Enters the one check of the process, borrowed; null takes it out. Gives: the one before, or null.
    // Thread: while no read or write is under way that could still call the one before.
    static SampleCheck* enter(SampleCheck* check);

    static bool wanted() { return mediaValidate.on(); }
    // Calls the check if one is wanted and there.
    template <class Data>
    static void run(const MediaSampleInMovie& sample, bool writing, Data&& data) {
        if (!wanted()) return;
        if (SampleCheck* const check = entered()) check->validate(sample, writing, data);
    }

protected:
    ~SampleCheck() = default;

private:
    static SampleCheck* entered();
};
