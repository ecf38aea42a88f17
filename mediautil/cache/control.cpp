#include <cstring>

#include "mediautil/cache/cached_media_obj.h"
#include "mediautil/object/media_obj_impl.h"
#include "services/system/control_socket.h"

// What the cache offers on the control socket.

namespace {

bool traceKind(const char* name, MediaObj::Trace& kind) {
    constexpr const char* names[] = {"list", "status", "flush"};
    for (unsigned i = 0; i < 3; ++i) {
        if (std::strcmp(name, names[i]) != 0) continue;
        kind = static_cast<MediaObj::Trace>(i);
        return true;
    }
    return false;
}

bool traceCommand(const ControlRequest& request, ControlReply& reply) {
    const char* name = request.has("kind") ? request.getText("kind") : "list";
    MediaObj::Trace kind{};
    if (name == nullptr || !traceKind(name, kind)) return reply.fail("kind is one of list, status and flush");
    CachedMediaObj* cache = CachedMediaObj::getRef();
    cache->trace(kind);
    const CachedMediaObj::Counts counts = cache->counts();
    reply.result().beginObject().key("entries").number(counts.entries);
    reply.result().key("zombies").number(counts.zombies);
    reply.result().key("active").number(MediaObjImpl::active.getCount()).endObject();
    return true;
}

}  // namespace

void CachedMediaObj::offerControl() {
    ControlSocket::addCommand("trace", "the cache's listing goes to the log; kind: list (default), status or flush",
                              traceCommand);
    ControlSocket::startFromEnvironment();
}
