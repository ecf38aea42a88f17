#pragma once

#include <gtest/gtest.h>

#include <string>

#include "mediautil/object/media_obj_impl.h"
#include "shared/include/object/core_subsystem.h"
#include "shared/include/object/switches.h"
#include "tests/kit/cache_probe.h"
#include "tests/kit/log_capture.h"
#include "tests/kit/scripted_movie.h"
#include "tests/kit/temp_tree.h"

namespace kit {

// A test that moves the cache itself: the cache's thread stands, so that nothing expires or is parsed again unless the
// test does it. At the end no object may be left that the test didn't let go of.
class CacheScene : public ::testing::Test {
protected:
    CacheScene();
    ~CacheScene() override;

    void TearDown() override;

    // A file of that name with its script; the name's suffix chooses the reader.
    std::string scripted(const std::string& name, const MovieScript& script, const std::string& bytes = "first");
    // Opens it; a failure fails the test.
    ScriptedMovie* open(const std::string& path, bool force = false,
                        MediaObj::ReadMode mode = MediaObj::ReadMode::ReadOnly);
    ScriptedMovie* openWriter(const std::string& path, bool morph = false);
    // A movie of that file which stands in no map yet, with the caller's and the cache's reference.
    static ScriptedMovie* parsed(const std::string& path, const MovieScript& script);
    // Runs passes far in the future until nothing idle is left.
    void expireAll();
    // µs; later than any clock that has started.
    static long long farFuture();
    static MediaAgent nullAgent() { return MediaAgent(nullptr); }

    CacheProbe m_cache;
    TempTree m_tree;
    LogCapture m_log;
    OpResult m_result{OpResult::Ok};

private:
    int m_activeBefore;
};

// A type, severity and subsystem in one assertion.
::testing::AssertionResult isWarning(const OpResult& result, int code);
::testing::AssertionResult isError(const OpResult& result, int code);

}  // namespace kit
