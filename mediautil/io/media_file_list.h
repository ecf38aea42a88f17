#pragma once

#include <vector>

#include "services/file/file_per_client.h"
#include "services/system/locks.h"
#include "services/system/msg_clamp.h"
#include "shared/include/object/media_agent.h"
#include "support/auto_ptr.h"
#include "support/op_result.h"

class MediaIoBuf;
struct MediaReadReq;
struct MediaSampleInMovie;

// The ordered list of the files that hold a movie: entry 0 is the movie itself, the others carry its media. The only
// place in the core that touches file handles.
// **Locks:** m_mutex, across each operation with its calls of the file layer; I/O runs outside it.
// **Owns:** its entries, which are never removed while the list lives, so that an index stays valid.
// **Units:** indexes from 0, ids from 1. **Defined in** media_file_list.cpp (entries and handles), file_list_read.cpp,
// file_list_write.cpp.
class MediaFileList {
public:
    MediaFileList() = default;
    MediaFileList(const MediaFileList&) = delete;
    MediaFileList& operator=(const MediaFileList&) = delete;
    ~MediaFileList();

    unsigned size() const MO_NO_THREAD_SAFETY_ANALYSIS;
    // The index of the entry with exactly this path, made if there is none. Opens nothing.
    unsigned getIndex(const char* path);
    // The same by an open handle, which becomes the null agent's. Takes: on a match, one reference beyond the
    // argument's.
    unsigned getIndex(AutoRefPtr<BasicFileIO> fp);
    // A handle for a client, the primary file opened behind the first read of another. Fails: error 1, warning 16.
    AutoRefPtr<BasicFileIO> getFp(MediaIdRec* id, bool writable, MediaAgent agent, OpResult& result);

    OpResult close(unsigned index, MediaAgent agent);
    OpResult close(MediaAgent agent);
    // Takes the handles of one entry over from a list that is being replaced; the other list's mutex is not taken.
    bool inheritFileHandles(unsigned index, MediaFileList& other);
    // Deletes all files, or none when one is protected. Fails: warning 5; warning 2 with the others gone.
    OpResult remove();
    // Fails: warning 1 out of range, warning 2.
    OpResult rename(unsigned index, const char* path);
    void purge(unsigned index);
    void flush(unsigned index);

    unsigned getDirtyOccupancy() const;
    unsigned getTotalOccupancy(MediaAgent agent, bool all) const;
    unsigned getCacheSize(MediaAgent agent, bool all) const;
    // Empty out of range, and for the primary file when it has gone from disk.
    const char* getPath(unsigned index);
    OsPathId getPathId(unsigned index);
    unsigned long long getMediaSize(unsigned index);
    // Of the primary file; 0 for an empty list.
    unsigned long long getVersion();
    void advise(unsigned index, BasicIOTypes::SizeAdvice advice);
    BasicIOTypes::SizeAdvice getSizeAdvice(unsigned index) const MO_NO_THREAD_SAFETY_ANALYSIS;
    bool allFilesOpen(MediaAgent agent, bool writable) const;
    unsigned getNumOpenFiles(MediaAgent agent);
    // Who has files open here, each client once, in place of what `clients` held. Fails: false, at once, when somebody
    // is at the list or at one of its files.
    bool tryListOpen(std::vector<FilePerClient::OpenHandles>& clients) const MO_NO_THREAD_SAFETY_ANALYSIS;
    void disableLowLevelMessages();
    void setReadOnly();

    // Reads all chunks of a sample into `buf`. Fails: warning 1, warning 13 with a text.
    OpResult read(const MediaSampleInMovie& sample, MediaIoBuf& buf, AutoRefPtr<BasicFileIO> fp);
    // Starts an asynchronous read. Fails: warning 1, warning 13.
    OpResult read(const MediaReadReq& req, AutoRefPtr<BasicFileIO> fp, bool recording);
    // Writes all chunks of a sample, one behind the other in `buf`, through the file's write handle. A sample without
    // bytes is ok and touches no file. Fails: as `getFp`; warning 1 when the chunks are more than `buf`; warning 12.
    OpResult write(const MediaSampleInMovie& sample, const MediaIoBuf& buf);
    // Starts an asynchronous write of the whole obuf at the sample's first chunk. Takes: the obuf, always.
    // Fails: warning 1 with a line, warning 12; what fails later is told by the handle's next write, flush or close.
    OpResult write(const MediaSampleInMovie& sample, phantom_OBUF* obuf);

private:
    static constexpr unsigned s_none = 0xFFFFFFFFu;

    AutoRefPtr<BasicFileIO> getFpLocked(MediaIdRec* id, bool writable, MediaAgent agent, OpResult& result)
        MO_REQUIRES(m_mutex);
    unsigned findPath(const char* path) const MO_REQUIRES(m_mutex);
    // Enters a new file. Answers its index.
    unsigned append() MO_REQUIRES(m_mutex);
    FilePerClient* entry(unsigned index) const MO_REQUIRES(m_mutex);
    void recomputePrimaryHeld() MO_REQUIRES(m_mutex);
    bool anyClientLeft() const MO_REQUIRES(m_mutex);
    void noticeMiss(const MediaReadReq& req, BasicFileIO& fp, bool recording);
    bool complain(const MediaSampleInMovie& sample, BasicFileIO* fp, phantom_OBUF* obuf);

    std::vector<AutoPtr<FilePerClient>> m_files MO_GUARDED_BY(m_mutex);  // in order of first mention
    mutable ZarnexPosix::JMutex m_mutex;
    MsgClamp m_writeClamp;                              // the write path and getIndex
    MsgClamp m_readClamp;                               // read failures
    MsgClamp m_missClamp;                               // the cache-miss line
    bool m_primaryHeld MO_GUARDED_BY(m_mutex) = false;  // the primary was opened behind a read of another file
};
