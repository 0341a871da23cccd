// One request on its way from a console to a module, and its answer on the way back.
#pragma once

#include <memory>
#include <vector>

namespace kelp {

class ClientHandle;
class Messager;

// Created with new by the console's framing (or by a module for an unsolicited message) and passed
// on as a plain pointer. Exactly one owner at a time: framing, a MessageQueue, the routing, a
// module, the send queue, and last the console's send thread, which deletes it. Not locked.
class Command {
  public:
    Command() = default;
    // For a descriptor that the caller keeps open until the answer is written.
    explicit Command(int fd);
    // From a client of the console; null: no answer is written.
    explicit Command(std::shared_ptr<ClientHandle> client);
    ~Command();
    Command(const Command&) = delete;
    Command& operator=(const Command&) = delete;

    std::vector<char>* GetRequest() { return &mRequest; }
    std::vector<char>* GetResponse() { return &mResponse; }

    std::vector<char> mRequest;     // as framed, without the terminator
    std::vector<char> mResponse;    // complete on the wire; the console adds nothing
    int mClientFd = -1;             // the client's number when it asked; -1: no answer is written
    Messager* mMessager = nullptr;  // told when the answer is written or dropped; not owned
    std::shared_ptr<ClientHandle> mClient;  // null: the answer is written to mClientFd itself
};

}  // namespace kelp
