#include "services/file/file_system_kind.h"

#include <sys/statfs.h>

#include <algorithm>
#include <iterator>

namespace {

constexpr unsigned long unseen[] = {
    0x00006969,  // nfs
    0x0000517B,  // smb
    0xFE534D42,  // smb2
    0xFF534D42,  // cifs
    0x65735546,  // fuse
    0x01021997,  // 9p
    0x794C7630,  // overlay
    0x5346414F,  // afs
    0x6B414653,  // the kernel's afs
    0x00C36400,  // ceph
    0x01161970,  // gfs2
    0x7461636F,  // ocfs2
    0x0BD00BD0,  // lustre
    0x47504653,  // gpfs
    0x786F4256,  // a virtual machine's shared folder
    0x73757245,  // coda
};

bool isUnseen(const struct statfs& found) {
    const unsigned long magic = static_cast<unsigned long>(found.f_type) & 0xFFFFFFFFul;
    return std::find(std::begin(unseen), std::end(unseen), magic) != std::end(unseen);
}

}  // namespace

bool hasUnseenWriters(const char* path) {
    struct statfs found;
    return ::statfs(path, &found) == 0 && isUnseen(found);
}

bool hasUnseenWriters(int fd) {
    struct statfs found;
    return ::fstatfs(fd, &found) == 0 && isUnseen(found);
}
