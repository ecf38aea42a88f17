#pragma once

#include <cstddef>
#include <string>
#include <string_view>

// One connection of the control socket: lines in, replies out, never blocking.
//
// While a reply waits to be taken, no further line is read, so that a client that doesn't read costs one reply's
// memory.
// **Threads:** the socket's own. **Owns:** the descriptor.
class ControlClient {
public:
    // Bytes of a request without its line's end.
    static constexpr std::size_t s_maxLine = 65536;

    // Takes: a connected socket that doesn't block.
    explicit ControlClient(int socket) : m_socket(socket) {}
    ~ControlClient();
    ControlClient(const ControlClient&) = delete;
    ControlClient& operator=(const ControlClient&) = delete;

    int getSocket() const { return m_socket; }
    // What poll is to wait for.
    short getEvents() const;
    // Reads, runs and replies as far as that goes. Gives: false when the connection is over.
    bool handle(short events);

private:
    bool receive();
    bool runLines();
    bool takeLine(std::string& line);
    bool flush();
    void answer(const std::string& line);
    void reply(std::string_view text);
    bool isReplyPending() const { return m_sent < m_out.size(); }

    int m_socket;             // owned
    std::string m_in;         // read and not yet run
    std::string m_out;        // replies
    std::size_t m_sent = 0;   // bytes of m_out that are out
    bool m_skipping = false;  // inside a line that was too long
    bool m_ended = false;     // the client sends no more
};
