// A device node of a serial console.
#pragma once

namespace kelp {

// Owns the descriptor. Used by one console at a time, which serialises all calls.
class SFIOChannel {
  public:
    SFIOChannel() = default;
    virtual ~SFIOChannel();
    SFIOChannel(const SFIOChannel&) = delete;
    SFIOChannel& operator=(const SFIOChannel&) = delete;

    // Returns the descriptor, which the channel owns; -1 on failure; 0, not the descriptor, when
    // the channel is open already (0 is part of the interface). With `blocking` unset the node is
    // opened without waiting, not as the controlling terminal, and with synchronous writes. A tty
    // is locked (flock), so that terminal programs refuse it; one that another program has locked
    // is opened all the same, with a record.
    int Open(const char* path, bool blocking);
    int Close();  // always 0

    int fd = -1;
};

}  // namespace kelp
