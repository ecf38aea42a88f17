#pragma once

#include <cstdint>

#include "services/file/basic_io_types.h"
#include "shared/include/index/media_sample_desc.h"
#include "support/auto_ptr.h"
#include "support/visibility.h"

// An asynchronous read of one sample or block of samples. A plain record that the caller fills in and that may go as
// soon as the call that takes it returns; the hook must live until its notification.
struct MO_PUBLIC MediaReadReq {
    enum class Origin : std::uint32_t { External = 0, Internal = 1, Redirected = 2 };

    const BasicIOTypes::ReadHook* m_cb = nullptr;  // receives the data; never null
    phantom_obAllocationId_t m_allocId = 0;        // allocation class of the data's obuf
    const void* m_tag = nullptr;                   // handed back in the notification
    bool m_frag = false;                           // the read is a fragment of a larger one
    bool m_cacheL2 = false;                        // the reader expects the data in the file's cache
    MediaSampleInMovie m_sample;                   // what to read
    Origin m_origin = Origin::External;

    bool isExternalReq() const { return m_origin == Origin::External; }
    bool isInternalReq() const { return m_origin == Origin::Internal; }
    bool isRedirectedReq() const { return m_origin == Origin::Redirected; }
    void setOrigin(Origin origin) { m_origin = origin; }

    // One line for messages. Gives: array text.
    AutoPtr<char> toString() const;
};
