#include "shared/include/index/media_offset_lookup.h"

#include "mediautil/index/frame_n.h"
#include "services/system/log.h"
#include "services/system/text.h"
#include "shared/include/object/core_subsystem.h"

namespace {

// The counts that a reference just taken may show. Above them something takes references and never gives them back.
constexpr int s_leastSharedCount = 2;
constexpr int s_mostSharedCount = 100;

}  // namespace

MediaOffsetLookup::MediaOffsetLookup(const MediaOffsetSummary& summary)
    : MediaOffsetSummary(summary), m_refCount(false, 1), m_chained(nullptr) {}

MediaOffsetLookup::~MediaOffsetLookup() {
    release(m_chained);
    m_chained = nullptr;
    delete m_frameN.load(std::memory_order_acquire);
}

void MediaOffsetLookup::close() const {
    if (m_chained) m_chained->close();
}

bool MediaOffsetLookup::needToBeChained() const { return false; }

bool MediaOffsetLookup::detach(const MediaClipDesc*) { return false; }

int MediaOffsetLookup::preserve() const {
    const int count = m_refCount.preserve();
    if (count < s_leastSharedCount || count > s_mostSharedCount) {
        errorMsg("MediaOffsetLookup::preserve(): ==>%d\n", count);
        debugBkpt();
    }
    return count;
}

int MediaOffsetLookup::release() const {
    const int count = m_refCount.release();
    if (count == 0) delete this;
    return count;
}

int MediaOffsetLookup::setParams(const MediaPropertyList&) { return 0; }

bool MediaOffsetLookup::getFrameInfo(const MediaPlayReq& req, MediaSampleDesc& desc, OpResult& result) const {
    return getMediaOffset(req, desc, result);
}

bool MediaOffsetLookup::addSamples(const MediaRecordReq& req, MediaSampleDesc& desc, OpResult& result) {
    return chainedAddSamples(req, desc, result);
}

OpResult MediaOffsetLookup::addEmptyEdit(unsigned long long) { return OpResult::Ok; }

OpResult MediaOffsetLookup::adviseLookAhead(const MediaPlayReq&, bool, phantom_obAllocationId_t) {
    return OpResult::Ok;
}

bool MediaOffsetLookup::appendChainedLookup(MediaOffsetLookup* next) {
    if (!next->needToBeChained()) return false;
    MediaOffsetLookup* last = this;
    while (last->m_chained)
        last = last->m_chained;
    last->m_chained = next;
    return next->preserve() != 0;
}

OpResult MediaOffsetLookup::updateNumSamples(unsigned long long) { return MO_INTERFACE_WARNING(1, nullptr); }

MediaOffsetSummary MediaOffsetLookup::getSummary() const { return *this; }

bool MediaOffsetLookup::getAncillarySummary(MediaOffsetSummary&, unsigned int&) const { return false; }

bool MediaOffsetLookup::chainedAddSamples(const MediaRecordReq& req, MediaSampleDesc& desc, OpResult& result) {
    if (m_chained) return m_chained->addSamples(req, desc, result);
    result = OpResult::Ok;
    return true;
}
