#include "shared/include/index/essence_tracker.h"

#include <new>

#include "services/system/format_str.h"
#include "services/system/log.h"
#include "shared/include/object/switches.h"
#include "support/numeric.h"

void EssenceTracker::Sample::add(const Sample& next) {
    if (next.in() == out()) {
        m_count += next.m_count;
    } else {
        *this = next;
    }
}

AutoPtr<char> EssenceTracker::Sample::toString() const {
    return FormatStr("%llds@%lld", static_cast<long long>(m_count), static_cast<long long>(m_in));
}

EssenceTracker::SampleItem& EssenceTracker::SampleItem::operator=(const Sample& sample) {
    Sample::operator=(sample);
    m_written = false;
    return *this;
}

AutoPtr<char> EssenceTracker::SampleItem::toString() const {
    return FormatStr("%s%llds@%lld%sw", m_node.getPrev() != nullptr ? "," : "", static_cast<long long>(m_count),
                     static_cast<long long>(m_in), m_written ? "" : "!");
}

EssenceTracker::EssenceTracker(unsigned track, bool enabled) : m_enabled(enabled), m_track(track) {
    for (SampleItem& item : m_pool) {
        logIfFalse(item.m_pooled, "EssenceTracker", "mediautil", __LINE__);
        m_free.append(item.m_node);
    }
}

EssenceTracker::~EssenceTracker() {
    while (SampleItem* item = m_list.popClient()) {
        if (!item->m_pooled) delete item;
    }
}

void EssenceTracker::notifyAdd(const MediaRecordReq& req) {
    if (m_enabled) insert(req);
}

void EssenceTracker::notifyWrite(const MediaSampleDesc& desc) {
    if (m_enabled) markWritten(Sample(desc));
}

bool EssenceTracker::isAvailable(const MediaSampleDesc& desc) const { return !m_enabled || scanfor(Sample(desc)); }

// Null when the pool is empty and no memory comes.
EssenceTracker::SampleItem* EssenceTracker::alloc(const Sample& sample) {
    if (SampleItem* item = m_free.popClient()) {
        *item = sample;
        return item;
    }
    SampleItem* item = new (std::nothrow) SampleItem(sample);
    if (item != nullptr) logIfFalse(!item->m_pooled, "alloc", "mediautil", __LINE__);
    return item;
}

void EssenceTracker::discard(SampleItem* item) {
    m_list.isolate(item->m_node);
    if (item->m_pooled) {
        m_free.append(item->m_node);
    } else {
        delete item;
    }
}

// The last run that doesn't begin behind this one; null when all do.
EssenceTracker::SampleItem* EssenceTracker::findBefore(const Sample& sample) const {
    DLinkNode<SampleItem>* node = m_list.getTail();
    while (node != nullptr && node->getClient()->in() > sample.in())
        node = node->getPrev();
    return node != nullptr ? node->getClient() : nullptr;
}

void EssenceTracker::insert(const MediaRecordReq& req) {
    const Sample sample(req);
    SampleItem* const before = findBefore(sample);
    SampleItem* const item = alloc(sample);
    if (item == nullptr) return;
    if (before == nullptr) {
        m_list.insert(item->m_node);
    } else {
        m_list.append(item->m_node, before->m_node);
        // A rewrite takes the older run's place.
        if (before->in() == sample.in()) discard(before);
    }
    // Meant for the tail even when the new run went elsewhere: back-ends that write in place append.
    if (req.m_hasOffset) m_list.getTail()->getClient()->m_written = true;
    if (m_list.size() > s_poolSize) discard(m_list.getHeadClient());
    if (m_list.size() > m_hiw) m_hiw = m_list.size();
}

// Written runs at the head go, but for the last of the list; those behind an unwritten one wait for it.
void EssenceTracker::markWritten(const Sample& sample) {
    bool allWritten = true;
    for (DLinkNode<SampleItem>* node = m_list.getHead(); node != nullptr;) {
        SampleItem* const item = node->getClient();
        node = node->getNext();
        if (item->contains(sample)) {
            item->m_written = true;
        } else if (!item->m_written) {
            allWritten = false;
        }
        if (allWritten && m_list.size() >= 2) discard(item);
    }
}

bool EssenceTracker::scanfor(const Sample& sample) const {
    if (mediaObjDbg.on(MediaDbg::IgnoreMissingMedia)) return true;
    if (m_list.size() != 0 && isInWritten(sample)) return true;
    if (mediaObjDbg.on(MediaDbg::EssenceStats)) {
        debugMsg("get(%s) fail: %s\n", sample.toString().get(), toString().get());
    }
    ++m_drops;
    return false;
}

// Requires: a list that isn't empty. Neighbouring runs count as one, and an unwritten one breaks the row.
bool EssenceTracker::isInWritten(const Sample& sample) const {
    const unsigned long long first = m_list.getHeadClient()->in();
    if (sample.in() < first) return true;
    Sample written(0, first);
    Sample unwritten(first, 0);
    for (DLinkNode<SampleItem>* node = m_list.getHead(); node != nullptr; node = node->getNext()) {
        const SampleItem& item = *node->getClient();
        Sample& run = item.m_written ? written : unwritten;
        run.add(item);
        if (run.contains(sample)) return item.m_written;
    }
    return false;
}

AutoPtr<char> EssenceTracker::toString() const {
    FormatStr text(128);
    text.format("trk %d: drop=%d,hiw=%d,list[%d]={", static_cast<int>(m_track), static_cast<int>(m_drops),
                static_cast<int>(m_hiw), static_cast<int>(m_list.size()));
    for (const DLinkNode<SampleItem>* node = m_list.getHead(); node != nullptr; node = node->getNext())
        text += node->getClient()->toString();
    text.format("}, free[%d]", static_cast<int>(m_free.size()));
    return text;
}

namespace {

constexpr int s_testedSamples = 256;
constexpr int s_testedReach = 32;

MediaSampleDesc descOf(const MediaRecordReq& req) {
    MediaSampleDesc desc;
    desc.set(req.m_count, req.m_sample, req.m_offset, req.m_info, 0, false);
    return desc;
}

int firstTested(int i) { return i < s_testedReach ? 0 : i - s_testedReach; }

// What has been added and not written isn't there. The description holds sample i each time, so the line for the
// samples before it comes each time too: the rule is stated here and not met.
void testRecorder() {
    EssenceTracker tracker(0, true);
    for (int i = 0; i < s_testedSamples; ++i) {
        const MediaRecordReq req(static_cast<unsigned long long>(i), 1, SampleInfo());
        const MediaSampleDesc desc = descOf(req);
        tracker.notifyAdd(req);
        for (int j = firstTested(i); j < i + s_testedReach; ++j) {
            const bool there = tracker.isAvailable(desc);
            if (there && j >= i) debugMsg("pwr(j)=%d=true: wrong\n", j);
            if (!there && j < i) debugMsg("pwr(j)=%d=false: wrong\n", j);
        }
        tracker.notifyWrite(desc);
    }
}

// While tracking is off everything is there. The word in the line is meant.
void testPlayer() {
    const EssenceTracker tracker(0, false);
    for (int i = 0; i < s_testedSamples; ++i) {
        for (int j = firstTested(i); j < i + s_testedReach; ++j) {
            const MediaRecordReq req(static_cast<unsigned long long>(j), 1, SampleInfo());
            if (!tracker.isAvailable(descOf(req))) debugMsg("play(j)=%d=true: wrong\n", j);
        }
    }
}

}  // namespace

void testEssenceTrack() {
    testRecorder();
    testPlayer();
}
