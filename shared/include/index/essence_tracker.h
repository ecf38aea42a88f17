#pragma once

#include <cstdint>

#include "shared/include/index/media_sample_desc.h"
#include "shared/include/index/media_sample_req.h"
#include "support/auto_ptr.h"
#include "support/dlist.h"
#include "support/visibility.h"

// Tells a reader of a track that is being recorded whether a sample's bytes are really in the file: samples are entered
// first and written afterwards, and writes may finish out of order. The recorder reports both, the reader asks. Only
// the latest runs of samples are kept; what has slid out of the record counts as written.
// **Locks:** none; who shares a tracker between threads guards it. **Owns:** its items. **Units:** samples.
class MO_PUBLIC EssenceTracker {
public:
    // A run of samples.
    class MO_PUBLIC Sample {
    public:
        Sample() = default;
        Sample(unsigned long long in, unsigned long long count) : m_in(in), m_count(count) {}
        explicit Sample(const MediaRecordReq& req) : m_in(req.m_sample), m_count(req.m_count) {}
        explicit Sample(const MediaSampleDesc& desc) : m_in(desc.m_sample), m_count(desc.m_count) {}

        unsigned long long in() const { return m_in; }
        unsigned long long out() const { return m_in + m_count; }
        bool contains(const Sample& other) const { return other.in() >= in() && other.out() <= out(); }
        // Grows by a run that begins where this one ends; any other run takes its place.
        void add(const Sample& next);
        // Gives: array text.
        AutoPtr<char> toString() const;

    protected:
        unsigned long long m_in = ~0ull;  // first sample
        unsigned long long m_count = 0;
    };

    // A run in the tracker's lists.
    class MO_PUBLIC SampleItem : public Sample {
    public:
        SampleItem() = default;
        explicit SampleItem(const Sample& sample) : Sample(sample), m_pooled(false) {}
        // Takes the run, not written yet; whose the item is stays.
        SampleItem& operator=(const Sample& sample);
        // Gives: array text.
        AutoPtr<char> toString() const;

        DLinkNode<SampleItem> m_node{*this};
        bool m_written = false;  // the bytes are in the file
        bool m_pooled = true;    // belongs to the tracker's own array
    };

    EssenceTracker(unsigned track, bool enabled);
    EssenceTracker(const EssenceTracker&) = delete;
    EssenceTracker& operator=(const EssenceTracker&) = delete;
    ~EssenceTracker();

    // Samples have been entered in the index; they count as written when the request says where they lie.
    void notifyAdd(const MediaRecordReq& req);
    // Their bytes are in the file.
    void notifyWrite(const MediaSampleDesc& desc);
    // Whether all samples of the description have been written. Always true while tracking is off.
    bool isAvailable(const MediaSampleDesc& desc) const;
    // One line for messages: each run closed by "w", an unwritten one with "!" before it. Gives: array text.
    AutoPtr<char> toString() const;

private:
    static constexpr unsigned s_poolSize = 8;  // also the longest list that stays

    SampleItem* alloc(const Sample& sample);
    void insert(const MediaRecordReq& req);
    SampleItem* findBefore(const Sample& sample) const;
    void discard(SampleItem* item);
    void markWritten(const Sample& sample);
    bool scanfor(const Sample& sample) const;
    bool isInWritten(const Sample& sample) const;

    DLinkedList<SampleItem> m_list{"CslAlloc", 0};  // tracked runs, in order of in()
    DLinkedList<SampleItem> m_free{"CslFree", 0};   // items of the pool that are free
    SampleItem m_pool[s_poolSize];
    bool m_enabled;
    std::uint32_t m_track;              // for messages
    std::uint32_t m_hiw = 0;            // the longest that m_list has ever been
    mutable std::uint32_t m_drops = 0;  // refusals
};

// Runs two trackers through what they promise and prints a line for each answer that is wrong.
MO_PUBLIC void testEssenceTrack();
