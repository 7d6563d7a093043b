#include "platform/linux/askpass.h"

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <string>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

namespace velmora::platform {

namespace {

bool writeAll(int fd, const char* data, size_t size)
{
    while (size > 0) {
        const ssize_t n = ::write(fd, data, size);
        if (n < 0 && errno == EINTR)
            continue;
        if (n <= 0)
            return false;
        data += n;
        size -= size_t(n);
    }
    return true;
}

} // namespace

bool askpassRequested()
{
    return std::getenv(askpassSocketVariable) && std::getenv(askpassTokenVariable);
}

int askpassMain(int argc, char** argv)
{
    const char* path = std::getenv(askpassSocketVariable);
    const char* token = std::getenv(askpassTokenVariable);
    if (!path || !token)
        return 1;
    const std::string question = argc > 1 ? argv[1] : "";

    sockaddr_un address {};
    address.sun_family = AF_UNIX;
    if (std::strlen(path) >= sizeof address.sun_path)
        return 1;
    std::strcpy(address.sun_path, path);
    const int fd = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    if (fd < 0)
        return 1;
    if (::connect(fd, reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0) {
        ::close(fd);
        return 1;
    }
    // token LF length LF question
    const std::string request = std::string(token) + '\n' + std::to_string(question.size()) + '\n' + question;
    if (!writeAll(fd, request.data(), request.size())) {
        ::close(fd);
        return 1;
    }
    // The answer comes when the user has given it: "1" and the answer, or "0"; then the program
    // closes the connection.
    std::string reply;
    char buffer[4096];
    for (;;) {
        const ssize_t n = ::read(fd, buffer, sizeof buffer);
        if (n < 0 && errno == EINTR)
            continue;
        if (n <= 0)
            break;
        reply.append(buffer, size_t(n));
    }
    ::close(fd);
    if (reply.empty() || reply[0] != '1')
        return 1;
    reply.erase(0, 1);
    reply += '\n';
    const bool written = writeAll(STDOUT_FILENO, reply.data(), reply.size());
    // The answer may be a password: leave no copy in memory that is given back to the system.
    ::explicit_bzero(reply.data(), reply.size());
    return written ? 0 : 1;
}

} // namespace velmora::platform
