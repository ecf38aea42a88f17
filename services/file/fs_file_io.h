#pragma once

#include <cstddef>
#include <string>

#include "services/file/async_engine.h"
#include "services/file/basic_file_io.h"
#include "services/file/file_claim.h"
#include "services/file/file_ref.h"
#include "services/system/locks.h"

// A file of the file system. Making one calls the system for nothing; the file is looked at by the first question about
// it and opened by the first read or write, or by `open`.
// **Threads:** as `BasicFileIO` says; `close` may also meet reads and writes of other threads: it waits for them, and
// what comes later opens the file again.
// **Locks:** m_openLock, across the opening and closing system calls; a leaf but for those of the file's identity.
// **Owns:** its descriptor and a count on the file's identity. Memory comes from a pool, so that a steady flow of
// handles takes none from the heap.
// **Units:** bytes. A read or write of more than 2^31 - 1 bytes in one call is refused with EINVAL.
// **Defined in** fs_file_io.cpp (names and facts), fs_file_open.cpp (descriptor), fs_file_data.cpp (reads and writes),
// fs_file_static.cpp (the static operations).
class MO_PUBLIC FsFileIO final : public BasicFileIO, private AsyncSink {
public:
    // Not yet open. The tag is a label for messages and must live for ever; the path may be null when `openById`
    // follows.
    FsFileIO(const char* tag, const char* path, BasicIOTypes::Mode mode);
    // For the file of that id, wherever it is by then. An id of no known file gives a handle whose file isn't there.
    FsFileIO(const char* tag, OsPathId id, BasicIOTypes::Mode mode);
    ~FsFileIO() override;

    // For as long as this lives, the version and the length that the handle tells are those of one look at the file,
    // and its opening counts on the same. A parse that looks at its file again and again sees one state of it; what
    // changes meanwhile has another version. Handles of other kinds take no notice. Requires: no other thread has the
    // handle yet.
    class SteadyFacts {
    public:
        explicit SteadyFacts(BasicFileIO& file) : m_file(dynamic_cast<FsFileIO*>(&file)) {
            if (m_file != nullptr) m_file->m_steady = this;
        }
        ~SteadyFacts() {
            if (m_file != nullptr) m_file->m_steady = nullptr;
        }
        SteadyFacts(const SteadyFacts&) = delete;
        SteadyFacts& operator=(const SteadyFacts&) = delete;

    private:
        friend class FsFileIO;
        FsFileIO* const m_file;  // borrowed; null for another kind of handle
        FileStat m_stat;
        bool m_looked = false;
    };

    static void* operator new(std::size_t size) noexcept;
    static void operator delete(void* memory) noexcept;

    bool open() override;
    int read(void* memory, unsigned size) override;
    int readAt(unsigned long long offset, void* memory, unsigned size) override;
    bool isCached(unsigned long long offset, unsigned size) override;
    int writeAt(unsigned long long offset, const void* memory, unsigned size) override;
    bool readAsync(const BasicIOTypes::ReadReq& request) override;
    bool writeAsync(unsigned long long offset, phantom_OBUF* obuf) override;
    unsigned long long getLength() override;
    const char* getPath() const override { return m_ref.path(); }
    AutoPtr<char> describe() const override;
    bool exists() override;
    bool openById(OsPathId id) override;
    OsPathId getPathId() override;
    unsigned long long getVersion() override;
    BasicIOTypes::SizeAdvice getSizeAdvice(bool fresh) override;
    // Kept with the file by a handle that may write; by one that may not, only for as long as the file is in use here.
    void advise(BasicIOTypes::SizeAdvice advice) override;
    void adviseReparse(int value) override;
    void resetLookAhead() override;
    void setLookAhead(unsigned bytes) override;
    int write(const void* memory, unsigned size) override;
    bool close() override;
    bool flush() override;

    // What is asked next goes to the file's server and isn't answered from anything remembered.
    void refresh();
    // The path made absolute, without any other effect.
    std::string getAbsolutePath() const;

    // True when anything is there under this path, of whatever kind.
    static bool exists(const char* path);
    // Removes a file, never a folder. Fails: false, with a line unless there was none.
    static bool remove(const char* path);
    // The last path element; the empty text for null. Borrowed: a place in `path`.
    static const char* filePart(const char* path);
    // Calls the hook on the file layer's watch thread when the file changes from that version on, also when that has
    // happened already. A second call for the same hook and file takes over the new key and version. Takes: the hook
    // borrowed, until `removeCb`.
    static void addCb(const BasicIOTypes::ChangeHook* hook, BasicIOTypes::PathWatch watch, unsigned long long version);
    // Stops that, for the file id of `addCb`: no call for this hook and file begins any more. A call that has begun may
    // still be running, since callers hold locks that the hook wants; before a hook is destroyed, `finishCb` waits for
    // it.
    static void removeCb(const BasicIOTypes::ChangeHook* hook, OsPathId id);
    // Waits: until no call of this hook is running. Not to be called with a lock held that the hook takes; from inside
    // a hook it returns at once.
    static void finishCb(const BasicIOTypes::ChangeHook* hook);

    // True while a descriptor is open.
    bool isOpen() const { return fdOf(m_slot.load(std::memory_order_acquire)) >= 0; }
    // The file that this handle reads, as its open descriptor says. Fails: false when none is open.
    bool statOpen(FileStat& stat);
    // True when the path shows the very file that is open here.
    bool isAtPath();
    // Claims the file that is open for the recordings of this process, until the claim is handed on or the handle ends.
    // Fails: false; `getLastError` is EBUSY when another process has it.
    bool claim();
    bool hasClaim() const { return m_claim.isHeld(); }
    void handClaimTo(FileClaim& other) { other.takeOver(m_claim); }
    // A further descriptor of the same opening. Gives: it, to be closed; below 0, with `errno`, when none is left.
    int duplicate();
    // Opens the very file that `held` has open, also when its name shows another one by now or none.
    bool openLike(FsFileIO& held);
    // Shares what is known about which file this is.
    void bindLike(const FileRef& other) { m_ref.bindLike(other); }
    const FileRef& getRef() const { return m_ref; }
    // The file has been renamed by this process. The text of the old path stays readable.
    void renamed(const char* path) { m_ref.moved(path); }
    void disableLowLevelMessages() { m_quiet.store(true, std::memory_order_relaxed); }
    void advise(BasicIOTypes::CacheAdvice advice);
    // Waits until nothing is under way. Answers whether all writes so far went well, as `close` does, and stays open.
    bool drain();
    // Asynchronous requests under way.
    unsigned getInFlight() const { return m_requests.load(std::memory_order_relaxed); }
    // Asynchronous writes that have ended well since the handle was made. They end in the order of the calls: once one
    // has failed, none that was accepted before the failure is told counts any more, or has been tried.
    unsigned long long getWritesDone() const { return m_writesDone.load(std::memory_order_acquire); }
    // Bytes handed to `writeAsync` that the system hasn't got yet.
    unsigned long long getPendingBytes() const { return m_pendingBytes.load(std::memory_order_relaxed); }
    // Bytes of this file in the system's cache, and those among them that aren't on the device yet. 0 when not open.
    unsigned long long getCachedBytes();
    unsigned long long getDirtyBytes();
    // Lets the system's cache drop this file's clean data.
    void dropCached();

private:
    // Keeps the descriptor open while it is used; fd() is below 0 when there is none.
    class Use {
    public:
        enum Kind { Open, IfOpen };

        Use(FsFileIO& file, Kind kind) : m_file(file), m_slot(file.beginUse(kind)) {}
        ~Use() {
            if (fd() >= 0) m_file.endUse(m_slot);
        }
        Use(const Use&) = delete;
        Use& operator=(const Use&) = delete;
        int fd() const { return fdOf(m_slot); }

    private:
        FsFileIO& m_file;
        const std::uint64_t m_slot;
    };

    // Looks at the file now, unless steady facts are wanted and known.
    int look(FileStat& stat);
    int lookAnew(FileStat& stat);

    void modeChanged() override;
    void readDone(int error) override;
    void writeDone(unsigned long long offset, unsigned size, int error) override;
    int prepareWrite(int fd, unsigned long long end) override;
    OsPathId getFileId() const override {
        const FileIdentity* const identity = m_ref.identity();
        return identity != nullptr ? identity->getId() : OsPathId(0);
    }
    void endWrite(unsigned size);

    // These answer a descriptor, or an errno value below 0, with what `stat` says of the file opened.
    int openChecked(const char* path, int flags, FileStat& stat) const;
    int openFile(FileStat& stat);
    int openTwin(int held, const FileKey& key, FileStat& stat);
    void install(int fd) MO_REQUIRES(m_openLock);
    void applyHints(int fd);
    int getFlags() const;
    static int fdOf(std::uint64_t slot) { return static_cast<int>(static_cast<std::uint32_t>(slot)) - 1; }
    static unsigned generationOf(std::uint64_t slot) { return static_cast<unsigned>(slot >> 32); }
    std::uint64_t beginUse(Use::Kind kind);
    void endUse(std::uint64_t slot) { m_users[generationOf(slot) % 2].fetch_sub(1, std::memory_order_seq_cst); }
    void waitWritten() const;
    void closeDescriptor();
    // False, with a line, when an asynchronous write has failed that nobody was told of.
    bool reportWrites();
    // Answers false, with a line unless they are disabled.
    bool refuse(int error, const char* what, const char* reason = nullptr);
    bool checkRange(unsigned long long offset, unsigned long long size, const char* what);
    bool checkWrite(unsigned long long offset, unsigned long long size);
    void lookAhead(int fd, unsigned long long end);
    void reserveAhead(int fd, unsigned long long end);
    bool isLarge() const;
    void storeAdvice(BasicIOTypes::SizeAdvice advice);
    BasicIOTypes::SizeAdvice readAdvice();

    static constexpr std::size_t s_room = 224;

    FileRef m_ref;
    const char* const m_tag;
    SteadyFacts* m_steady = nullptr;  // borrowed; null as a rule
    FileClaim m_claim;
    ZarnexPosix::JMutex m_openLock;
    // The generation of descriptors and, below it, the descriptor plus 1, or 0 while none is open. Each closing begins
    // a generation.
    std::atomic<std::uint64_t> m_slot{0};
    // Calls that use the descriptor, by generations in turn, so that a closing waits only for those who came before it.
    // A call is counted before it looks at m_slot again, and a closing changes m_slot before it looks at the count, all
    // in one total order, so that no descriptor is closed under a user.
    std::atomic<unsigned> m_users[2] = {};
    std::atomic<unsigned> m_requests{0};                // asynchronous requests under way, each counted within a call
    std::atomic<bool> m_fdWritable{false};              // the descriptor may be written to
    OpenLink m_link;                                    // this descriptor, for those who look for the file
    std::atomic<unsigned long long> m_pendingBytes{0};  // of asynchronous writes
    std::atomic<unsigned> m_pendingWrites{0};
    std::atomic<unsigned long long> m_writesDone{0};
    std::atomic<unsigned long long> m_aheadTo{0};     // look-ahead has been asked for up to here
    std::atomic<unsigned long long> m_reservedTo{0};  // space has been reserved up to here
    unsigned long long m_position = 0;                // of `read` and `write`
    std::atomic<unsigned> m_lookAhead{0};             // bytes behind each read
    std::atomic<int> m_writeError{0};                 // errno of an asynchronous write, until it is told
    std::atomic<BasicIOTypes::SizeAdvice> m_advice{BasicIOTypes::SizeAdvice::None};
    std::atomic<BasicIOTypes::CacheAdvice> m_cacheAdvice{BasicIOTypes::CacheAdvice::Reread};
    std::atomic<bool> m_fresh{false};     // the file has been looked at for `exists` a moment ago
    std::atomic<bool> m_sync{false};      // the next look goes to the file's server
    std::atomic<bool> m_distrust{false};  // the head is dropped from the cache at the next opening
    std::atomic<bool> m_quiet{false};
    char m_pathRoom[s_room];  // where a path of usual length stands
};
