#pragma once

#include "mediautil/io/sample_check.h"
#include "services/system/locks.h"
#include "services/system/msg_clamp.h"
#include "shared/include/object/media_obj.h"
#include "support/auto_ptr.h"
#include "support/dlist.h"

class MediaClipDesc;

// Hands each sample that is read or written to a checker that knows its format, and logs what that finds beside the
// sample's coordinates. The checker is a clip of a private object, one for all samples of the same parameters.
// **Threads:** any. **Locks:** m_mutex, one sample at a time in the whole process; it comes before all locks of the
// object core and the cache. **Owns:** its validators, for ever: there are as many as kinds of media were seen.
class MediaValidator final : public DLinkedList<class MediaValidatorEntry>, public SampleCheck {
public:
    using Validator = MediaValidatorEntry;

    // Enters itself as the check of the process.
    MediaValidator();
    ~MediaValidator();

    void validate(const MediaSampleInMovie& sample, bool writing, const MediaIoBuf& data) override MO_EXCLUDES(m_mutex);
    void validate(const MediaSampleInMovie& sample, bool writing, phantom_OBUF* data) override MO_EXCLUDES(m_mutex);

    // The clip that the sample belongs to. Gives: borrowed from its movie, which somebody else holds. Fails: null, with
    // a complaint.
    MediaClipDesc* getClip(const MediaSampleInMovie& sample);
    // The validator of the clip's parameters, made at their first sample.
    Validator* getValidatorLokd(MediaClipDesc& clip) MO_REQUIRES(m_mutex);

private:
    friend class ValidatorProbe;  // tests look at the parts
    MediaClipDesc* findClip(const MediaSampleInMovie& sample, MediaObj* obj);
    template <class Data>
    void validateAny(const MediaSampleInMovie& sample, bool writing, const Data& data) MO_EXCLUDES(m_mutex);

    static MsgClamp s_badValidate;

    ZarnexPosix::JMutex m_mutex;
};

extern MediaValidator mediaValidator;

// The checker of one set of clip parameters. One that couldn't be built stays, so that it is tried only once.
class MediaValidatorEntry {
public:
    explicit MediaValidatorEntry(MediaClipDesc& clip);
    MediaValidatorEntry(const MediaValidatorEntry&) = delete;
    MediaValidatorEntry& operator=(const MediaValidatorEntry&) = delete;

    // What is wrong with the data, or null.
    AutoPtr<char> validate(const MediaIoBuf& data);
    AutoPtr<char> validate(phantom_OBUF* data);

    std::uint32_t getParamId() const { return m_paramId; }
    DLinkNode<MediaValidatorEntry>& getNode() { return m_node; }
    MediaValidatorEntry* getNext() { return m_node.getNextClient(); }
    MediaClipDesc* getClip() const { return m_clip; }

private:
    const std::uint32_t m_paramId;    // of the clip that it was made for
    AutoReleasePtr<MediaObj> m_obj;   // private
    MediaClipDesc* m_clip = nullptr;  // in m_obj; null when it couldn't be built
    DLinkNode<MediaValidatorEntry> m_node{*this};
};
