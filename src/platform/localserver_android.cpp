#include <cutils/sockets.h>
#include <sys/socket.h>

#include "platform/localserver.h"

namespace kelp {

int ListenLocalAbstract(const std::string& name) {
    // The type may carry socket()'s flags: libcutils masks them off where it looks at the type.
    return socket_local_server(name.c_str(), ANDROID_SOCKET_NAMESPACE_ABSTRACT,
                               SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK);
}

}  // namespace kelp
