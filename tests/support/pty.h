// A pseudo-terminal that plays a serial line: the test holds the station's end.
#pragma once

#include <string>

#include "platform/uniquefd.h"

namespace kelp::test {

class Pty {
  public:
    // The line is raw from the start, so that nothing is echoed before the daemon has set it up.
    Pty();

    int Master() const { return mMaster.Get(); }
    const std::string& Device() const { return mDevice; }
    // Drops what neither side has read.
    void Flush();
    // Leaves the line to the daemon alone, so that the master sees a hang-up when it closes it.
    void DropSlave() { mSlave.Reset(); }
    // Pulls the cable: the device is gone for whoever has it open, and cannot be opened again.
    void HangUp() { mMaster.Reset(); }

  private:
    UniqueFd mMaster;
    UniqueFd mSlave;  // kept, or what is written before the daemon opens the line would be lost
    std::string mDevice;
};

}  // namespace kelp::test
