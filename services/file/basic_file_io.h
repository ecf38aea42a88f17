#pragma once

#include <atomic>

#include "services/file/basic_io_types.h"
#include "support/atomic_ops.h"
#include "support/auto_ptr.h"
#include "support/visibility.h"

// The abstract, reference-counted file handle. It starts unopened and with a count of 0; `AutoRefPtr` holds it.
// **Threads:** reads and writes at an offset may run on any number of threads at once; `read` and `write` at the moving
// position, `open`, `close` and `openById` belong to one thread at a time. **Units:** bytes.
class MO_PUBLIC BasicFileIO {
public:
    explicit BasicFileIO(BasicIOTypes::Mode mode) : m_refCount(0), m_mode(mode) {}
    BasicFileIO(const BasicFileIO&) = delete;
    BasicFileIO& operator=(const BasicFileIO&) = delete;
    virtual ~BasicFileIO();

    // Opens the file as its mode says; true when it is open already. Never follows into a device, a pipe or a folder.
    // Fails: false, one clamped log line with path and reason; `getLastError` keeps the errno value.
    virtual bool open() = 0;
    // Reads from the moving position. Answers the bytes read, short only at the end of the file; below 0 is a failure.
    virtual int read(void* memory, unsigned size) = 0;
    // Reads at an offset, opening the file if need be. Answers as `read`.
    virtual int readAt(unsigned long long offset, void* memory, unsigned size) = 0;
    // True when the whole range lies in memory already.
    virtual bool isCached(unsigned long long offset, unsigned size) = 0;
    // Writes at an offset. Answers the bytes written; below what was asked when the device is full or fails.
    virtual int writeAt(unsigned long long offset, const void* memory, unsigned size) = 0;
    // Starts a read whose answer comes through the request's hook, once, on an engine thread and possibly before the
    // call returns. Fails: false, and no notification comes.
    virtual bool readAsync(const BasicIOTypes::ReadReq& request) = 0;
    // Starts a write. Takes: the obuf, always. A failure that comes later is told by the next write, flush or close;
    // what was accepted behind it isn't written either.
    virtual bool writeAsync(unsigned long long offset, phantom_OBUF* obuf) = 0;
    // The length of the file that the handle stands for now.
    virtual unsigned long long getLength() = 0;
    // Borrowed until the handle is bound to another file.
    virtual const char* getPath() const = 0;
    // One line for messages. Gives: array text.
    virtual AutoPtr<char> describe() const = 0;
    // True when the file is there now and is a regular file.
    virtual bool exists() = 0;
    // Binds an unopened handle to a file by its id. Fails: false when no file of that id can be found.
    virtual bool openById(OsPathId id) = 0;
    // 0 when the file isn't there.
    virtual OsPathId getPathId() = 0;
    // Differs whenever the content may differ; 0 only when the file isn't there.
    virtual unsigned long long getVersion() = 0;
    // The stripe hint; `fresh` reads what is kept with the file instead of what the handle remembers.
    virtual BasicIOTypes::SizeAdvice getSizeAdvice(bool fresh) = 0;
    virtual void advise(BasicIOTypes::SizeAdvice advice) = 0;
    // Called with 1 just before a re-parse: what the cache holds of the head is not to be trusted.
    virtual void adviseReparse(int value) = 0;
    // Forgets the look-ahead asked for before.
    virtual void resetLookAhead() = 0;
    // Bytes that will be read next behind the present reads.
    virtual void setLookAhead(unsigned bytes) = 0;
    // Writes at the moving position. Answers the bytes written.
    virtual int write(const void* memory, unsigned size) = 0;
    // Waits for what is under way and closes. Fails: false when an earlier write failed.
    virtual bool close() = 0;
    // Waits for what is under way and asks the device to keep it. Fails: false when a write or the flush failed.
    virtual bool flush() = 0;

    // True while the handle is usable: not destroyed, and not stopped by a failure that leaves it useless.
    bool validate() const;
    bool writable() const { return m_mode != BasicIOTypes::Mode::ReadOnly; }
    BasicIOTypes::Mode getMode() const { return m_mode; }
    void setMode(BasicIOTypes::Mode mode) {
        if (mode != m_mode) {
            m_mode = mode;
            modeChanged();
        }
    }
    // The errno value of the last operation that failed, or 0.
    int getLastError() const { return m_lastError.load(std::memory_order_relaxed); }

    int preserve() { return ++m_refCount; }
    int release() {
        const int count = --m_refCount;
        if (count == 0) delete this;
        return count;
    }

protected:
    virtual void modeChanged() = 0;
    void setLastError(int error) { m_lastError.store(error, std::memory_order_relaxed); }

private:
    static constexpr unsigned s_alive = 0x0F11E10;

    AtomicCounter m_refCount;
    BasicIOTypes::Mode m_mode;
    std::atomic<int> m_lastError{0};
    unsigned m_magic = s_alive;
};
