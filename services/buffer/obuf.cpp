#include "services/buffer/obuf.h"

#include <algorithm>

#include "services/buffer/obuf_pool.h"

// A block is used by the record that lies in it, while that record is a buffer, and by each piece that shows its bytes.
// Most buffers are one record with one piece of its own block: two users, both the caller's.

namespace {

using namespace ObufDetail;

void clear(phantom_OBUF& record, Block* home) {
    record.m_first = nullptr;
    record.m_last = nullptr;
    record.m_size = 0;
    record.m_count = 0;
    record.m_home = home;
    record.m_inline.m_block = nullptr;
}

bool isInline(const phantom_OBUF& record, const Piece* piece) { return piece == &record.m_inline; }

void dropUsers(Block* block, unsigned users) {
    if (block->m_users.fetch_sub(users, std::memory_order_acq_rel) == users) block->m_pool->put(block);
}

void dropRecord(phantom_OBUF* record) {
    if (record->m_home != nullptr) {
        dropUsers(record->m_home, 1);
    } else {
        records().put(record);
    }
}

phantom_OBUF* newRecord() {
    phantom_OBUF* record = records().get();
    if (record != nullptr) clear(*record, nullptr);
    return record;
}

// A further piece of the same bytes, in the given place or a new one.
Piece* share(const Piece& piece, Piece* place) {
    if (place == nullptr) place = pieces().get();
    if (place == nullptr) return nullptr;
    *place = piece;
    place->m_next = nullptr;
    place->m_block->m_users.fetch_add(1, std::memory_order_relaxed);
    return place;
}

void append(phantom_OBUF& record, Piece* piece) {
    (record.m_last == nullptr ? record.m_first : record.m_last->m_next) = piece;
    record.m_last = piece;
    record.m_size += piece->m_length;
    ++record.m_count;
}

// Moves the piece that lies in the record to a place of its own, so that the list can leave the record.
bool detachInline(phantom_OBUF& record) {
    Piece** link = &record.m_first;
    Piece* before = nullptr;
    while (*link != nullptr && !isInline(record, *link)) {
        before = *link;
        link = &before->m_next;
    }
    if (*link == nullptr) return true;
    Piece* moved = pieces().get();
    if (moved == nullptr) return false;
    *moved = record.m_inline;
    *link = moved;
    if (record.m_last == &record.m_inline) record.m_last = moved;
    return true;
}

// Makes `position` lie between two pieces and answers the piece in front of it, null for the front or without memory.
bool splitAt(phantom_OBUF& record, unsigned position, Piece*& before) {
    before = nullptr;
    Piece* piece = record.m_first;
    for (; piece != nullptr && position >= piece->m_length; piece = piece->m_next) {
        position -= piece->m_length;
        before = piece;
    }
    if (position == 0) return true;
    Piece* rest = share(*piece, nullptr);
    if (rest == nullptr) return false;
    rest->m_data += position;
    rest->m_length -= position;
    rest->m_next = piece->m_next;
    piece->m_length = position;
    piece->m_next = rest;
    if (record.m_last == piece) record.m_last = rest;
    ++record.m_count;
    before = piece;
    return true;
}

void splice(phantom_OBUF& destination, phantom_OBUF& source, Piece* before) {
    Piece*& link = before == nullptr ? destination.m_first : before->m_next;
    source.m_last->m_next = link;
    if (link == nullptr) destination.m_last = source.m_last;
    link = source.m_first;
    destination.m_size += source.m_size;
    destination.m_count += source.m_count;
}

void freePieces(phantom_OBUF& record) {
    for (Piece* piece = record.m_first; piece != nullptr;) {
        Piece* const next = piece->m_next;
        Block* const block = piece->m_block;
        if (!isInline(record, piece)) pieces().put(piece);
        dropUsers(block, 1);
        piece = next;
    }
}

}  // namespace

phantom_OBUF* obufAllocate(phantom_obAllocationId_t id, unsigned size) {
    if (size == 0) return newRecord();
    Block* block = poolOf(id).get(size);
    if (block == nullptr) return nullptr;
    phantom_OBUF& record = block->m_record;
    record.m_inline = {block, block->m_memory, size, nullptr};
    record.m_first = &record.m_inline;
    record.m_last = &record.m_inline;
    record.m_size = size;
    record.m_count = 1;
    record.m_home = block;
    return &record;
}

void obufFree(phantom_OBUF* buf) {
    if (buf == nullptr) return;
    Block* const home = buf->m_home;
    // With two users and both of them here nobody else can come: a further one would have to be made from this
    // reference.
    if (home != nullptr && buf->m_first == &buf->m_inline && buf->m_count == 1 && buf->m_inline.m_block == home &&
        home->m_users.load(std::memory_order_acquire) == 2) {
        home->m_pool->put(home);
        return;
    }
    freePieces(*buf);
    dropRecord(buf);
}

phantom_OBUF* obufDup(phantom_OBUF* buf) {
    if (buf == nullptr) return nullptr;
    phantom_OBUF* copy = newRecord();
    if (copy == nullptr) return nullptr;
    for (const Piece* piece = buf->m_first; piece != nullptr; piece = piece->m_next) {
        Piece* shared = share(*piece, copy->m_first == nullptr ? &copy->m_inline : nullptr);
        if (shared == nullptr) {
            obufFree(copy);
            return nullptr;
        }
        append(*copy, shared);
    }
    return copy;
}

unsigned obufSize(const phantom_OBUF* buf) { return buf == nullptr ? 0 : buf->m_size; }

unsigned obufSegmentCount(const phantom_OBUF* buf) { return buf == nullptr ? 0 : buf->m_count; }

int obufInsert(phantom_OBUF* destination, phantom_OBUF* source, unsigned position) {
    if (destination == nullptr || source == nullptr || destination == source) return 0;
    if (position == obufAppend) position = destination->m_size;
    if (position > destination->m_size || source->m_size > 0xFFFFFFFFu - destination->m_size) return 0;
    if (source->m_count > 0) {
        Piece* before = destination->m_last;
        if (!detachInline(*source)) return 0;
        if (position != destination->m_size && !splitAt(*destination, position, before)) return 0;
        splice(*destination, *source, before);
    }
    dropRecord(source);
    return 1;
}

int obufNTranslateHost(const phantom_OBUF* buf, iovec* list, int max) {
    if (buf == nullptr || list == nullptr) return 0;
    int count = 0;
    for (const Piece* piece = buf->m_first; piece != nullptr && count < max; piece = piece->m_next) {
        list[count++] = {piece->m_data, piece->m_length};
    }
    return count;
}

unsigned char* obufFirstByte(const phantom_OBUF* buf) {
    return buf == nullptr || buf->m_first == nullptr ? nullptr : buf->m_first->m_data;
}
