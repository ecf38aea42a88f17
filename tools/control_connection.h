#pragma once

#include <sys/types.h>

#include <chrono>
#include <optional>
#include <string>

#include "tools/failure.h"
#include "tools/options.h"
#include "tools/output.h"

// A client of a running process's control socket: asks one thing after the other.
// **Owns:** the connection.
class ControlConnection {
public:
    // What came of a question.
    struct Reply {
        bool m_done = false;
        Json m_result;         // once it is done
        std::string m_reason;  // why the process refused
    };

    explicit ControlConnection(const ProcessOptions& options) : m_options(options) {}
    ControlConnection(const ControlConnection&) = delete;
    ControlConnection& operator=(const ControlConnection&) = delete;
    ~ControlConnection();

    // Finds the socket and connects. Fails: the reason; also when the process at the other end isn't the one that was
    // asked for, or belongs to somebody else.
    std::optional<Failure> open();
    // Asks; `members` go with the request. Waits: for the answer, as long as the options say.
    // Fails: false when there is no proper answer. A refusal is one.
    bool ask(const char* command, const Json& members, Reply& reply, std::optional<Failure>& failure);

    const std::string& path() const { return m_path; }
    pid_t pid() const { return m_pid; }

private:
    using Clock = std::chrono::steady_clock;

    std::optional<Failure> find();
    std::optional<Failure> findByPid(unsigned long long number);
    std::optional<Failure> connect();
    std::optional<Failure> checkPeer();
    bool await(short events, Clock::time_point end, std::optional<Failure>& failure) const;
    bool send(const std::string& line, Clock::time_point end, std::optional<Failure>& failure) const;
    bool receive(std::string& line, Clock::time_point end, std::optional<Failure>& failure);
    Clock::time_point deadline() const;
    Failure broken(const char* message) const;

    const ProcessOptions m_options;
    std::string m_path;    // of the socket's file
    pid_t m_wanted = 0;    // 0 when a file was named
    pid_t m_pid = 0;       // of the process at the other end, 0 when the system can't tell
    int m_socket = -1;     // owned
    unsigned m_asked = 0;  // questions so far
    std::string m_rest;    // received behind the last answer
};
