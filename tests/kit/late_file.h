#pragma once

#include <string>
#include <vector>

#include "tests/kit/fake_file.h"
#include "tests/kit/samples.h"

namespace kit {

// A handle whose reads are answered when the test says so, in the order that it says, on the thread that says it.
class LateFile : public FakeFile {
public:
    bool readAsync(const BasicIOTypes::ReadReq& request) override {
        ++m_asyncCalls;
        if (m_asyncCalls == m_refuse || m_asyncCalls == m_refuseToo) return false;
        m_reads.push_back(request);
        return true;
    }
    // What was accepted, in order.
    const std::vector<BasicIOTypes::ReadReq>& reads() const { return m_reads; }
    // The read has come to a good end, with the bytes of the pattern at its place.
    bool answer(unsigned read) { return answerAs(read, m_reads[read].m_tag); }
    bool answerAs(unsigned read, const void* tag) {
        const BasicIOTypes::ReadReq request = m_reads[read];
        phantom_OBUF* const buf = obufOf(patternFrom(request.m_offset, request.m_size));
        return request.m_hook->callCb(BasicIOTypes::ReadNotify(buf, tag));
    }
    bool fail(unsigned read, int status) {
        const BasicIOTypes::ReadReq request = m_reads[read];
        return request.m_hook->callCb(BasicIOTypes::ReadNotify(request.m_tag, status));
    }

    int m_refuse = 0, m_refuseToo = 0;  // the requests of these numbers, from 1, are refused

private:
    std::vector<BasicIOTypes::ReadReq> m_reads;
};

}  // namespace kit
