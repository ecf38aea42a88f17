#pragma once

#include <optional>
#include <string>

#include "shared/include/object/media_obj.h"
#include "tools/failure.h"
#include "tools/options.h"

class MediaClipDesc;
class MediaTrackDesc;

// An opened movie, held for as long as this stands.
class Movie {
public:
    // Fails: get() is null and failure() says why. A lack of permission, a folder and an error of the device are told
    // apart from a file that no reader takes.
    explicit Movie(const std::string& path);
    // One that is open already. Takes: the caller's reference.
    Movie(const std::string& path, MediaObj* object) : m_path(path), m_object(object) {}

    const MediaObj* get() const { return m_object.get(); }
    MediaObj* get() { return m_object.get(); }
    const MediaObj& operator*() const { return *m_object.get(); }
    const std::optional<Failure>& failure() const { return m_failure; }
    const std::string& path() const { return m_path; }

    // The track of that name, or the only one for the empty name. Fails: null.
    const MediaTrackDesc* findTrack(const std::string& name, std::optional<Failure>& failure) const;

private:
    std::string m_path;
    AutoReleasePtr<MediaObj> m_object;
    std::optional<Failure> m_failure;
};

// The name of a movie's track, such as audio0.
std::string trackName(const MediaObj& movie, unsigned index);

// A part of something that is counted from 0.
struct Part {
    unsigned long long m_from = 0;
    unsigned long long m_count = 0;
};

// The part that the options ask for of `total` units. Fails: nothing when it isn't there whole.
std::optional<Part> resolvePart(const RangeOptions& options, unsigned long long total, const char* unit,
                                std::optional<Failure>& failure);
