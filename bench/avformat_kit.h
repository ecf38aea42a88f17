#pragma once

// libavformat as the peer of an open. It is told to print nothing, which is work that we don't do either.

#ifdef MEDIACORE_HAVE_AVFORMAT

#include <cstdlib>

extern "C" {
#include <libavformat/avformat.h>
}

namespace bench {

// Opens and closes a file; with `streams` it is looked through for what a player has to know.
inline void openByAvformat(const char* path, bool streams) {
    av_log_set_level(AV_LOG_QUIET);
    AVFormatContext* context = nullptr;
    if (avformat_open_input(&context, path, nullptr, nullptr) != 0) std::abort();
    if (streams && avformat_find_stream_info(context, nullptr) < 0) std::abort();
    avformat_close_input(&context);
}

}  // namespace bench

#endif
