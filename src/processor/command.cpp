#include "processor/command.h"

#include <utility>

#include "processor/clienthandle.h"

namespace kelp {

Command::Command(int fd) : mClientFd(fd) {}

Command::Command(std::shared_ptr<ClientHandle> client)
    : mClientFd(client != nullptr ? client->Number() : -1), mClient(std::move(client)) {}

Command::~Command() = default;

}  // namespace kelp
