#include "mediautil/io/sample_check.h"

#include <atomic>

namespace {

// Release and acquire: whoever sees the check sees it built.
std::atomic<SampleCheck*> s_check{nullptr};

}  // namespace

SampleCheck* SampleCheck::enter(SampleCheck* check) { return s_check.exchange(check, std::memory_order_acq_rel); }

SampleCheck* SampleCheck::entered() { return s_check.load(std::memory_order_acquire); }
