#pragma once

// SIGINT and SIGTERM, turned into a question that the commands ask between their steps. The first signal also makes
// blocking calls of the main thread end with EINTR, now and every 100 ms; the second one ends the program at once.
class Interrupt {
public:
    // Thread: the main thread, before any other.
    static void install();
    // Thread: any.
    static bool isPending();
};
