#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <vector>

#include "services/system/control_client.h"
#include "services/system/control_commands.h"
#include "services/system/debugger_on.h"
#include "services/system/log.h"
#include "services/system/switch_bank.h"
#include "tests/fuzz/fuzz_input.h"

// What a connection of the control socket is sent, in pieces of any size,
// beside its lines run one by one. Every reply is one line of JSON with the
// request's id. The first byte of the input says how long the pieces are.

namespace {

using fuzz::require;

// Every switch as it was at the start of the program, so that an input doesn't
// hang on the ones before.
class Switches {
public:
    Switches() {
        setLogDestination(LogDestination::None);
        SwitchBank::visit([](DebuggerOn& item, void* self) { static_cast<Switches*>(self)->keep(item); }, this);
    }
    void reset() const {
        for (const Kept& kept : m_kept)
            kept.m_item->set(kept.m_value);
    }

private:
    struct Kept {
        DebuggerOn* m_item;
        unsigned m_value;
    };
    void keep(DebuggerOn& item) { m_kept.push_back({&item, item.get()}); }

    std::vector<Kept> m_kept;
};

const Switches s_switches;

bool isRingAsked(const std::string& line) { return line.find("log.ring") != std::string::npos; }
bool isBlank(const std::string& line) { return line.find_first_not_of(" \t\r") == std::string::npos; }

// The id as JSON writes it, or null where the line has none that can be had.
std::string idOf(const std::string& line) {
    JsonValue request;
    std::string reason;
    if (!JsonValue::parse(line, request, reason)) return "null";
    const JsonValue* const id = request.find("id");
    if (id == nullptr) return "null";
    JsonWriter text;
    if (id->getKind() == JsonValue::Kind::Number) return id->getText();
    return id->getKind() == JsonValue::Kind::String ? text.string(id->getText()).get() : "null";
}

void checkReply(const std::string& line, const std::string& reply) {
    JsonValue value;
    std::string reason;
    require(JsonValue::parse(reply, value, reason) && value.getKeys().size() == 3);
    require(reply.rfind("{\"id\":" + idOf(line) + ",\"ok\":", 0) == 0);
    const bool done = value.getItems()[1].getKind() == JsonValue::Kind::True;
    require(value.getKeys()[2] == (done ? "result" : "error"));
    require(done || !value.getItems()[2].getText().empty());
    for (const char c : reply)
        require(static_cast<unsigned char>(c) >= 0x20);
}

std::vector<std::string> linesOf(const std::string& text) {
    std::vector<std::string> lines;
    for (std::size_t at = 0; at < text.size();) {
        const std::size_t end = std::min(text.find('\n', at), text.size());
        lines.push_back(text.substr(at, end - at));
        at = end + 1;
    }
    return lines;
}

std::string runLines(const std::vector<std::string>& lines) {
    std::string replies;
    s_switches.reset();
    for (const std::string& line : lines) {
        if (isBlank(line)) continue;
        const std::string reply = ControlCommands::execute(line);
        checkReply(line, reply);
        replies += reply + '\n';
    }
    return replies;
}

// Takes what there is to read, so that the client never waits for room.
void drain(int socket, std::string& replies) {
    char bytes[4096];
    for (ssize_t size = 0; (size = ::recv(socket, bytes, sizeof bytes, MSG_DONTWAIT)) > 0;)
        replies.append(bytes, static_cast<std::size_t>(size));
}

std::string runConnection(const std::string& text, std::size_t piece) {
    int sockets[2];
    std::string replies;
    require(::socketpair(AF_UNIX, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0, sockets) == 0);
    s_switches.reset();
    {
        ControlClient client(sockets[0]);
        for (std::size_t at = 0; at < text.size(); at += piece) {
            const std::size_t count = std::min(piece, text.size() - at);
            require(::send(sockets[1], text.data() + at, count, 0) == static_cast<ssize_t>(count));
            require(client.handle(POLLIN));
            drain(sockets[1], replies);
        }
        ::shutdown(sockets[1], SHUT_WR);
        // A reply that found no room is waiting, and its client is still there.
        while (client.handle(client.getEvents()))
            drain(sockets[1], replies);
        drain(sockets[1], replies);
    }
    ::close(sockets[1]);
    return replies;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    constexpr std::size_t longest = 16384;
    if (size > longest) return 0;
    fuzz::Input input(data, size);
    const unsigned piece = input.byte() * 8 + 1;
    const std::string text = input.rest();
    const std::vector<std::string> lines = linesOf(text);
    // The ring tells of what came before, which is another thing each time.
    if (std::any_of(lines.begin(), lines.end(), &isRingAsked)) return 0;
    require(runConnection(text, std::max<std::size_t>(piece, text.size() / 64)) == runLines(lines));
    s_switches.reset();
    return 0;
}
