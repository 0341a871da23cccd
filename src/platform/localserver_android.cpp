#include <cutils/sockets.h>
#include <fcntl.h>
#include <sys/socket.h>

#include "platform/localserver.h"

namespace kelp {

int ListenLocalAbstract(const std::string& name) {
    const int fd =
        socket_local_server(name.c_str(), ANDROID_SOCKET_NAMESPACE_ABSTRACT, SOCK_STREAM);
    if (fd >= 0) {
        fcntl(fd, F_SETFD, FD_CLOEXEC);
        fcntl(fd, F_SETFL, fcntl(fd, F_GETFL) | O_NONBLOCK);
    }
    return fd;
}

}  // namespace kelp
