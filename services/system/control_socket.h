#pragma once

#include "services/system/control_commands.h"
#include "support/auto_ptr.h"
#include "support/visibility.h"

// The operator's door to a running process: a Unix socket DIR/mediacore.PID.sock that only its owner may open, off
// unless asked for. Requests and replies are JSON lines; `help` lists the commands.
//
// **Threads:** start and stop from any; the commands run on the socket's own thread, one at a time, so that a slow
// client holds up nobody and a slow command only other commands.
class MO_PUBLIC ControlSocket {
public:
    static constexpr unsigned s_maxClients = 64;

    // Opens the socket in that folder. Fails: false, with a warning that says why; also when it is open already.
    static bool start(const char* directory);

    // The same if the environment variable MEDIACORE_CTL names a folder; also warns of wrong entries in
    // MEDIACORE_SWITCHES. To be called when the process is up. Gives: whether the socket is open.
    static bool startFromEnvironment();

    // Closes all connections and unlinks the file. Waits: for the command that runs. Fails: false from inside a
    // command.
    static bool stop();

    static bool isRunning();
    // The socket's file; empty when it isn't open.
    static AutoPtr<char> getPath();

    // ControlCommands::add.
    static bool addCommand(const char* name, const char* help, ControlCommand command);
};
