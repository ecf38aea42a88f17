#pragma once

#include <pthread.h>

#include <mutex>
#include <string>
#include <vector>

#include "mediautil/io/sample_check.h"
#include "shared/include/index/media_sample_desc.h"
#include "tests/kit/gate.h"
#include "tests/kit/hooks.h"
#include "tests/kit/samples.h"

namespace kit {

// The check of the process while it stands: keeps what it is shown, and holds it up at a gate.
class SampleRecorder : public SampleCheck {
public:
    struct Look {
        bool m_writing;
        std::string m_bytes;
        bool m_null;  // an obuf that isn't there
        MediaSampleInMovie m_sample;
        std::string m_thread;  // the name of the thread that showed it
    };

    SampleRecorder() : m_before(SampleCheck::enter(this)) {}
    ~SampleRecorder() { SampleCheck::enter(m_before); }

    void validate(const MediaSampleInMovie& sample, bool writing, const MediaIoBuf& data) override {
        keep({writing, bytesOf(data), false, sample, threadName()});
    }
    void validate(const MediaSampleInMovie& sample, bool writing, phantom_OBUF* data) override {
        keep({writing, bytesOf(data), data == nullptr, sample, threadName()});
    }

    std::vector<Look> looks() const {
        const std::lock_guard<std::mutex> lock(m_mutex);
        return m_looks;
    }
    unsigned count() const { return static_cast<unsigned>(looks().size()); }
    static std::string threadName() {
        char name[32] = {};
        pthread_getname_np(pthread_self(), name, sizeof name);
        return name;
    }

    Gate m_gate;  // each look is kept first and stands here then

private:
    void keep(Look look) {
        {
            const std::lock_guard<std::mutex> lock(m_mutex);
            m_looks.push_back(std::move(look));
        }
        m_gate.pass();
    }

    SampleCheck* const m_before;
    mutable std::mutex m_mutex;
    std::vector<Look> m_looks;
};

}  // namespace kit
