#pragma once
// The program doubles as ssh's askpass helper (SSH_ASKPASS): ssh runs it with a question, it
// hands the question over a private local socket to the connections object that started that
// ssh, waits for the answer and prints it. The password thus goes from the program's memory to
// ssh through a pipe only: never on a command line, in an environment or in a file.
//
// main() calls askpassMain() before anything else when askpassRequested() says it was started
// that way.

namespace velmora::platform {

// The environment names that the connections object sets for ssh.
inline constexpr char askpassSocketVariable[] = "VELMORA_ASKPASS_SOCKET";
inline constexpr char askpassTokenVariable[] = "VELMORA_ASKPASS_TOKEN";

// Whether this process was started by ssh as the askpass helper.
bool askpassRequested();
// Asks the question in argv[1]; prints the answer and returns 0, or returns 1 when there is none.
int askpassMain(int argc, char** argv);

} // namespace velmora::platform
