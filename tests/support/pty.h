// A pseudo-terminal in place of a serial line: the test holds the station's end.
#pragma once

#include <string>

#include "platform/uniquefd.h"

namespace kelp::test {

class Pty {
  public:
    // The line is raw from the start: no echo before the daemon has set it up.
    Pty();

    int Master() const { return mMaster.Get(); }
    const std::string& Device() const { return mDevice; }
    // Drops all unread bytes, in both directions.
    void Flush();
    // Closes the test's own slave, so that the master sees a hang-up when the daemon closes the
    // line.
    void DropSlave() { mSlave.Reset(); }
    // Simulates a pulled cable: the open line hangs up and cannot be opened again.
    void HangUp() { mMaster.Reset(); }

  private:
    UniqueFd mMaster;
    UniqueFd mSlave;  // keeps bytes that are written before the daemon opens the line
    std::string mDevice;
};

}  // namespace kelp::test
