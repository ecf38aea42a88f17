#pragma once

#include "backends/common/pcm_movie.h"
#include "backends/wav/wav_format.h"
#include "services/metadata/user_data.h"

// A WAV file as a movie: one audio track of one clip. What its bext chunk says stands in the movie's properties: the
// UMID under "umidValue", the time reference (samples since midnight) under "firstFrame". The basic part of a UMID that
// is one also stands in the movie's user data.
class WavMediaObj final : public PcmMovie {
public:
    // Takes the file into the movie's list. Requires: a format that has been checked.
    WavMediaObj(AutoRefPtr<BasicFileIO> file, const WavFormat& format);

    // The reader that is registered. Fails: null with the sentence that says why.
    static MediaObj* openFile(AutoRefPtr<BasicFileIO> file, OpResult& result);

    const UserDataSet* getUserDataMovie() const override { return &m_userData; }
    UserDataSet* getUserDataMovie(bool) override { return &m_userData; }

private:
    void keepBext(const WavFormat& format);
    void keepUmid(const WavFormat& format);

    UserDataStore m_userData;
};
