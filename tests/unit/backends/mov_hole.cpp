#include "tests/unit/backends/mov_hole.h"

#include <gtest/gtest.h>

#include <algorithm>

#include "backends/mov/mov_recording.h"
#include "shared/include/index/media_sample_desc.h"

void skipEssenceTo(MediaObj& movie, std::uint64_t offset) {
    MovIndexKeeper& keeper = dynamic_cast<MovRecordedMovie&>(movie).recorder().getKeeper();
    OpResult result;
    const std::shared_ptr<RecordedEssence> essence = keeper.start(result);
    ASSERT_NE(essence, nullptr) << result.describe().get();
    while (keeper.getEnd() < offset) {
        const auto bytes = static_cast<unsigned>(std::min<std::uint64_t>(offset - keeper.getEnd(), 1u << 30));
        MediaSampleDesc hole;
        hole.set(0, 0, keeper.reserve(bytes), bytes, 0, false);
        essence->noteWritten(hole);
    }
}
