#pragma once

// True when others than this machine may write files of that file system, or the kernel here doesn't see all who do:
// network, user-space and layered file systems. Unknown ones count as local; a path that isn't there as well.
bool hasUnseenWriters(const char* path);
bool hasUnseenWriters(int fd);
