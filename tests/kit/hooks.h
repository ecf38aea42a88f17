#pragma once

#include <mutex>
#include <string>
#include <vector>

#include "services/buffer/obuf.h"
#include "services/file/basic_io_types.h"
#include "shared/include/object/media_obj.h"
#include "tests/kit/wait_for.h"

namespace kit {

// All bytes of a buffer; empty for null.
std::string bytesOf(const phantom_OBUF* buf);

// Receives the answers of asynchronous reads: counts them and keeps their bytes.
// **Threads:** any. **Owns:** nothing; each answer's buffer is freed as it comes.
class ReadHook : public BasicIOTypes::ReadHook {
public:
    struct Answer {
        std::string m_bytes;
        const void* m_tag;
        int m_status;
        bool m_null;  // no buffer: the read failed
    };

    unsigned count() const;
    std::vector<Answer> answers() const;
    // Waits until so many answers have come.
    bool waitForAnswers(unsigned wanted) const {
        return waitFor([&] { return count() >= wanted; });
    }

protected:
    bool vCallCb(const BasicIOTypes::ReadNotify& notify) const override;

private:
    mutable std::mutex m_mutex;
    mutable std::vector<Answer> m_answers;
};

// The hooks of a holder: count the moves and keep what they were told.
class ChangedHook : public MediaObj::OnChanged {
public:
    int count() const { return m_count.load(); }
    const MediaObj::Persist* last() const { return m_last.load(); }

protected:
    bool vCallCb(const MediaObj::Persist& holder) const override {
        m_last = &holder;
        ++m_count;
        return false;  // nobody looks at the answer
    }

private:
    mutable std::atomic<int> m_count{0};
    mutable std::atomic<const MediaObj::Persist*> m_last{nullptr};
};

class ChangingHook : public MediaObj::OnChanging {
public:
    int count() const { return m_count.load(); }
    const MediaObj* last() const { return m_last.load(); }

protected:
    bool vCallCb(MediaObj& next) const override {
        m_last = &next;
        ++m_count;
        return false;
    }

private:
    mutable std::atomic<int> m_count{0};
    mutable std::atomic<const MediaObj*> m_last{nullptr};
};

}  // namespace kit
