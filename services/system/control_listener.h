#pragma once

#include <sys/types.h>

#include <string>

// The control socket's file: made so that at no moment anybody but its owner can connect, and taken away again.
//
// **Threads:** one at a time. **Owns:** two descriptors and the file.
class ControlListener {
public:
    ControlListener() = default;
    ~ControlListener() { close(); }
    ControlListener(const ControlListener&) = delete;
    ControlListener& operator=(const ControlListener&) = delete;

    // Listens on DIR/mediacore.PID.sock. A file that a dead process left there is replaced.
    // Fails: false with the reason.
    bool open(const char* directory, std::string& reason);

    // Stops listening and unlinks the file, if it is still the one that was made.
    void close();

    int getSocket() const { return m_socket; }
    const std::string& getPath() const { return m_path; }

    // Gives: a connection of the same user or of root, closed on exec and not blocking; or below 0 with `errno`, which
    // is EACCES for a stranger.
    int accept();

private:
    bool openDirectory(const char* directory, std::string& reason);
    bool bindFile(std::string& reason);
    bool bindOnce();
    bool removeStale(std::string& reason);
    bool checkFile(std::string& reason);

    int m_directory = -1;
    int m_socket = -1;
    std::string m_name;  // in the directory
    std::string m_path;
    bool m_bound = false;
    ino_t m_inode = 0;  // of the file that was made
};
