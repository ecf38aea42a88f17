#include "tests/kit/leak_check.h"

#include <filesystem>
#include <sstream>

#include "mediautil/object/media_obj_impl.h"
#include "services/buffer/obuf_pool.h"
#include "tests/kit/wait_for.h"

namespace kit {

namespace {

unsigned entriesOf(const char* folder) {
    unsigned count = 0;
    std::error_code error;
    for (std::filesystem::directory_iterator it(folder, error), end; !error && it != end; it.increment(error))
        ++count;
    return count;
}

// An engine's workers make these on their own threads when they come to it, and keep them.
bool isOfEngine(const std::filesystem::path& descriptor) {
    std::error_code error;
    const std::string target = std::filesystem::read_symlink(descriptor, error).string();
    return target == "anon_inode:[io_uring]" || target == "anon_inode:[eventfd]";
}

unsigned descriptors() {
    unsigned count = 0;
    std::error_code error;
    for (std::filesystem::directory_iterator it("/proc/self/fd", error), end; !error && it != end; it.increment(error))
        count += isOfEngine(it->path()) ? 0 : 1;
    return count;
}

}  // namespace

LeakCheck::Counts LeakCheck::now() {
    Counts counts;
    const ObufStats obufs = obufStats();
    counts.m_movies = MediaObjImpl::active.getCount();
    counts.m_obufBlocks = obufs.m_liveBlocks;
    counts.m_obufNodes = obufs.m_liveNodes;
    counts.m_descriptors = descriptors();
    counts.m_threads = entriesOf("/proc/self/task");
    return counts;
}

bool LeakCheck::Counts::holdsNoMoreThan(const Counts& before) const {
    return m_movies == before.m_movies && m_obufBlocks == before.m_obufBlocks && m_obufNodes == before.m_obufNodes &&
           m_descriptors <= before.m_descriptors && m_threads <= before.m_threads;
}

std::string LeakCheck::difference() const {
    if (waitFor([this] { return now().holdsNoMoreThan(m_before); }, std::chrono::seconds(10))) return {};
    const Counts after = now();
    std::ostringstream text;
    const auto tell = [&text](const char* what, auto before, auto then) {
        if (before != then) text << what << ": " << before << " before, " << then << " after; ";
    };
    tell("movies", m_before.m_movies, after.m_movies);
    tell("buffer blocks", m_before.m_obufBlocks, after.m_obufBlocks);
    tell("buffer nodes", m_before.m_obufNodes, after.m_obufNodes);
    tell("descriptors", m_before.m_descriptors, after.m_descriptors);
    tell("threads", m_before.m_threads, after.m_threads);
    return text.str();
}

}  // namespace kit
