#pragma once

#include <memory>
#include <vector>

#include "neighbours/filter_media_obj.h"
#include "neighbours/translation_track.h"

// A movie of structure only: tracks, clips, rates and lengths as another movie has them, without files and essence.
// Its first track brings the time base and what the movie says of itself as a whole.
// **Owns:** its tracks. **Threads:** one while it is built, then any number of readers.
class TranslationMediaObj final : public FilterMediaObj {
public:
    explicit TranslationMediaObj(OpenAsWriter asWriter);

    // An empty one of that file type, to be built by its caller. Gives: two references, one of them set aside for the
    // cache; null without memory.
    static TranslationMediaObj* create(MediaFileType type);

    unsigned getTrackCount() const override { return static_cast<unsigned>(m_tracks.size()); }
    const MediaTrackDesc* getTrackAt(unsigned index) const override {
        return index < getTrackCount() ? m_tracks[index].get() : nullptr;
    }
    MediaTrackDesc* getTrackAt(unsigned index) override {
        return index < getTrackCount() ? m_tracks[index].get() : nullptr;
    }
    // An empty track of that kind. Gives: borrowed.
    MediaTrackDesc* createTrack(const MediaClipParam& param, OpResult& result) override;
    // An empty track like another one, whether or not that has clips.
    MediaTrackDesc* createTrack(const MediaTrackDesc& source, OpResult& result) override;

private:
    void describe(MediaFileType type, unsigned timeBase, MediaEncodingType encoding, MediaVideoRate standard);
    TranslationTrack& append();

    std::vector<std::unique_ptr<TranslationTrack>> m_tracks;
};
