// What a log site costs while its bit is off: the operations of the hot paths with one more of their own sites, beside
// the same operations as they are.

#include "bench/record_kit.h"
#include "services/system/log.h"
#include "shared/include/object/switches.h"

namespace {

using bench::Block;
using bench::Recording;

// A site as they stand everywhere: a test in place, and the text made behind it.
template <unsigned... Bits>
void site(const MediaObj& movie) {
    if (mediaObjDbg.on(Bits...)) debugMsg("%s\n", movie.toString(true).get());
}

template <class Plain, class Logged>
void measure(const char* what, Plain plain, Logged logged, const bench::Options& options) {
    bench::Rounds all(options);
    all.addCall("plain", bench::threadSeconds, plain);
    all.addCall("plain again", bench::threadSeconds, plain);
    all.addCall("logged", bench::threadSeconds, logged);
    all.run("plain", "plain again");
    all.tell(std::string(what) + ", with one more log site, beside the same without it", "logged", "plain", "1");
}

// Operations that a read-only movie serves.
void measureReader(const bench::Folder& folder, const bench::Options& options) {
    MediaObj& movie = *bench::openMovie(bench::writeWavs(folder, 1)[0]);
    CachedMediaObj& cache = *CachedMediaObj::getRef();
    const OsPathId id = movie.getPathId();
    measure(
        "find and release", [&cache, id] { cache.find(id, false, nullptr)->release(); },
        [&cache, &movie, id] {
            site<MediaDbg::CacheActivity>(movie);
            cache.find(id, false, nullptr)->release();
        },
        options);
    measure(
        "preserve and release",
        [&movie] {
            movie.preserve();
            movie.release();
        },
        [&movie] {
            movie.preserve();
            site<MediaDbg::Reference>(movie);
            movie.release();
        },
        options);
    movie.release();
    bench::expireMovies();
}

void measureRecorder(const bench::Folder& folder, const bench::Options& options) {
    Recording recording(folder, bench::s_sound);
    const Block block(bench::s_sound);
    MediaSampleInMovie first;
    recording.add(first);
    const MediaObj& movie = recording.movie();
    measure(
        "addSamples of 1,602 samples", [&recording, where = MediaSampleInMovie()]() mutable { recording.add(where); },
        [&recording, &movie, where = MediaSampleInMovie()]() mutable {
            recording.add(where);
            site<MediaDbg::Record1, MediaDbg::Record2>(movie);
        },
        options);
    measure(
        "vsWrite of 6,408 bytes", [&recording, &block, &first] { recording.write(first, block); },
        [&recording, &block, &first, &movie] {
            recording.write(first, block);
            site<MediaDbg::Record1, MediaDbg::Record2>(movie);
        },
        options);
}

// Nothing but sites, for what one of them costs by itself.
void measureAlone(const bench::Options& options) {
    constexpr unsigned sites = 64;
    bench::Rounds all(options);
    for (const char* name : {"sites", "sites again"}) {
        all.addCall(
            name, bench::threadSeconds,
            [] {
                unsigned on = 0;
                for (unsigned i = 0; i < sites; ++i) {
                    bench::keep(on);  // as in a program, no two sites become one
                    if (mediaObjDbg.on(MediaDbg::Reference)) ++on;
                }
                bench::keep(on);
            },
            sites);
    }
    all.run("sites", "sites again");
    std::printf("a log site by itself: %.3g ns, A/A %.3f%s\n", all.cost("sites") * 1e9, all.control(),
                all.isFair() ? "" : " (unfair run)");
}

}  // namespace

int main(int argc, char** argv) {
    const bench::Options options(argc, argv);
    const bench::Folder folder(options);
    measureReader(folder, options);
    measureRecorder(folder, options);
    measureAlone(options);
    return 0;
}
