#include "processor/command.h"

#include <utility>

#include "processor/clientdescriptor.h"

namespace kelp {

Command::Command(int fd) : mClientFd(fd) {}

Command::Command(int fd, std::shared_ptr<ClientDescriptor> client)
    : mClientFd(fd), mClient(std::move(client)) {}

Command::~Command() = default;

}  // namespace kelp
