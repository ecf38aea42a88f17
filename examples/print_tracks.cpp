#include <cstdio>
#include <mediaobj>

int main(int argc, char** argv) {
    if (argc != 2) {
        std::fprintf(stderr, "usage: %s MOVIE\n", argv[0]);
        return 2;
    }
    MediaObj::init();
    OpResult result;
    AutoReleasePtr<MediaObj> movie(MediaObj::openReader(argv[1], MediaObj::ReadMode::ReadOnly, result));
    if (!movie) {
        std::fprintf(stderr, "%s: %s\n", argv[1], result.describe().get());
        return 1;
    }
    for (unsigned i = 0; i < movie->getTrackCount(); ++i) {
        const MediaTrackDesc* track = movie->getTrackAt(i);
        std::printf("%s: %s, %s s\n", MediaNames::get(movie->getTrackEnum(i)).get(),
                    MediaNames::get(track->getEncoding()), track->getDuration().toString(3).get());
    }
    movie = nullptr;  // the reference goes before the subsystems stop
    MediaObj::shutdown();
}
