#include "tools/block_reader.h"

#include <cerrno>
#include <cstring>

#include "shared/include/object/core_subsystem.h"

BlockReader::BlockReader(const Movie& movie, const TrackUnits& units, Part part)
    : m_movie(movie),
      m_units(units),
      m_end(part.m_from + part.m_count),
      m_at(part.m_from),
      m_hook(*this, &BlockReader::receive) {}

BlockReader::~BlockReader() {
    std::unique_lock<std::mutex> lock(m_mutex);
    for (; m_used > 0; --m_used, m_head = (m_head + 1) % s_depth) {
        Slot& slot = m_slots[m_head];
        m_arrived.wait(lock, [&slot] { return !slot.m_pending; });
        obufFree(slot.m_block.m_data);
    }
}

void BlockReader::prepare(Slot& slot, const TrackUnits::Stretch& stretch) {
    const std::lock_guard<std::mutex> lock(m_mutex);
    const MediaSampleDesc& samples = stretch.m_where;
    const unsigned bytes = samples.m_count > 0 ? samples.m_info.getSize() : 0;
    slot.m_block = Block{nullptr, stretch.m_units, samples.m_count, bytes};
    slot.m_first = m_at;
    slot.m_status = 0;
    slot.m_pending = bytes > 0;
}

bool BlockReader::start(std::optional<Failure>& failure) {
    TrackUnits::Stretch stretch;
    if (!m_units.locate(m_at, m_end - m_at, s_blockBytes, stretch, failure)) return false;
    Slot& slot = m_slots[(m_head + m_used) % s_depth];
    prepare(slot, stretch);
    if (slot.m_block.m_bytes > 0 && !read(slot, stretch.m_where, failure)) return false;
    m_at += stretch.m_units;
    ++m_used;
    return true;
}

bool BlockReader::read(Slot& slot, const MediaSampleInMovie& where, std::optional<Failure>& failure) {
    MediaReadReq request;
    request.m_sample = where;
    request.m_cb = &m_hook;
    request.m_tag = &slot;
    OpResult result = (*m_movie).vaRead(request);
    if (result) return true;
    slot.m_pending = false;
    failure = Failure::from(result, m_movie.path());
    return false;
}

void BlockReader::fill() {
    while (m_used < s_depth && m_at < m_end && !m_startFailure)
        start(m_startFailure);
}

bool BlockReader::receive(const BasicIOTypes::ReadNotify& notify) {
    Slot& slot = *static_cast<Slot*>(const_cast<void*>(notify.m_tag));
    // Notified under the lock: once it is released this reader may be gone.
    const std::lock_guard<std::mutex> lock(m_mutex);
    slot.m_block.m_data = notify.m_obuf;
    slot.m_status = notify.m_status;
    slot.m_pending = false;
    m_arrived.notify_one();
    return true;
}

Failure BlockReader::explain(const Slot& slot) const {
    const std::string place =
        std::string(" in the ") + m_units.name() + "s from " + std::to_string(slot.m_first) + " on";
    // ENODATA is what a read is told that begins behind the file's end.
    if (slot.m_block.m_data == nullptr && slot.m_status != 0 && slot.m_status != ENODATA) {
        return Failure::make(ExitCode::IoError, MediaCode::ReadError, m_movie.path(),
                             std::strerror(slot.m_status) + place);
    }
    return Failure::make(ExitCode::IoError, MediaCode::ReadError, m_movie.path(), "the file ends" + place);
}

bool BlockReader::next(Block& block, std::optional<Failure>& failure) {
    fill();
    if (m_used == 0) {
        failure = m_startFailure;
        return false;
    }
    Slot& slot = m_slots[m_head];
    {
        std::unique_lock<std::mutex> lock(m_mutex);
        m_arrived.wait(lock, [&slot] { return !slot.m_pending; });
    }
    m_head = (m_head + 1) % s_depth;
    --m_used;
    const bool isEmpty = slot.m_block.m_bytes == 0;
    if (!isEmpty && (slot.m_block.m_data == nullptr || obufSize(slot.m_block.m_data) < slot.m_block.m_bytes)) {
        failure = explain(slot);
        obufFree(slot.m_block.m_data);
        return false;
    }
    block = slot.m_block;
    return true;
}
